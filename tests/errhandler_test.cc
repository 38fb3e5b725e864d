// The reports of a status, as they reach the log.
#include <cerrno>
#include <string>

#include "errutils/statuss.h"
#include "tests/runtime_fixture.h"

namespace {

// Level ERR goes to the file "err", the diagnostic level to "dia", INF to "inf".
class Reports : public RuntimeTest {
 protected:
  Reports() {
    logmsg.setFileName(LEVEL_INF, (folder_ / "inf").c_str());
    logmsg.setFileName(LEVEL_ERR, (folder_ / "err").c_str());
    logmsg.setFileName(LEVEL_DIA, (folder_ / "dia").c_str());
  }
  static Status failure(Severity_e severity, int os_error) {
    Status status;
    status.set(severity, MOX_OPEN_FAILED, os_error, "site.cc", 42);
    addStatusParam(&status, "/a");
    return status;
  }

  const std::string head_ = "ERR " + process_;
};

constexpr const char* message = "KORV-S-05500: Opening file \"/a\" failed, OS status=2";

TEST_F(Reports, ReportCarriesTraceAndOsMessage) {
  Status status = failure(SEV_SYSTEMERR, ENOENT);
  pushTraceStatus(&status, "up.cc", 7);
  status.report("opening");
  EXPECT_EQ(read_file(folder_ / "err"),
            head_ + "opening Level='systemerr' (0x4), Message='" + message +
                "' (0x157c)\nSet in 'site.cc' line 42\n    0  'up.cc' line 7\n"
                "OS message: No such file or directory\n");
  EXPECT_EQ(read_file(folder_ / "dia"),
            std::string(message) + "\nOS message: No such file or directory\n");
}

TEST_F(Reports, AnErrorOfTheUserHasNoDiagnosticMessage) {
  Status status = failure(SEV_ERROR, 0);
  for (int i = 0; i < 21; ++i) pushTraceStatus(&status, "up.cc", i);
  status.report(nullptr);
  std::string trace;
  for (int i = 0; i < 20; ++i) {
    trace += (i < 10 ? "    " : "   ") + std::to_string(i) + "  'up.cc' line " + std::to_string(i) +
             "\n";
  }
  EXPECT_EQ(read_file(folder_ / "err"),
            head_ +
                "Level='error' (0x3), Message='KORV-E-05500: Opening file \"/a\" failed, OS "
                "status=0' (0x157c)\nSet in 'site.cc' line 42\n" +
                trace + "Trace tracecnt overflow (20).\n");
  EXPECT_FALSE(std::filesystem::exists(folder_ / "dia"));
}

TEST_F(Reports, PiecesForOtherMessages) {
  Status status = failure(static_cast<Severity_e>(9), ENOENT);
  logmsg.start(LEVEL_DIA, __FILE__, __LINE__);
  status.printSysError();
  status.debug("label");
  logmsg.logg();
  const std::string text = "KORV-A-05500: Opening file \"/a\" failed, OS status=2";
  EXPECT_EQ(read_file(folder_ / "dia"),
            " (0x157c)   Message='" + text + "'\nOS message: No such file or directory\n" +
                "label Level='(Illegal)' (0x9), Message='" + text +
                "' (0x157c)\nSet in 'site.cc' line 42\nOS message: No such file or directory\n");
}

TEST_F(Reports, AbortEndsTheProcess) {
  EXPECT_EXIT(failure(SEV_SYSTEMERR, ENOENT).abort("gone"), testing::ExitedWithCode(1), "");
  const auto contains = [this](const char* file, const std::string& text) {
    return read_file(folder_ / file).find(text) != std::string::npos;
  };
  EXPECT_TRUE(contains("err", "System aborted with message: 'gone'\nLevel='systemerr' (0x4), "));
  EXPECT_TRUE(contains("dia", message));
  EXPECT_TRUE(contains("inf", "exit(1)\n"));
  EXPECT_EXIT(failure(SEV_SYSTEMERR, 0).abort(nullptr), testing::ExitedWithCode(1), "");
  EXPECT_TRUE(contains("err", " System aborted:\nLevel="));
}

}  // namespace

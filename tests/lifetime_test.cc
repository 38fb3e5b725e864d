// The runtime is there before any constructor of a program and after its last destructor.
#include "tests/support/runtime_fixture.h"

namespace {

struct BeforeAndAfter {
  BeforeAndAfter() {
    logmsg.setFileNameAll((folder / "log").c_str());
    use_the_runtime("before main");
  }
  ~BeforeAndAfter() { use_the_runtime("after main"); }
  static void use_the_runtime(const char* when) {
    Status status;
    VarSet::instance().set("acktimeout", 1, status);
    logLine(LEVEL_WRN, std::string(when) + ": " + status.getText());
  }
  const TempFolder folder;
};

const BeforeAndAfter instance;

TEST(Lifetime, RuntimeServesBeforeAndAfterMain) {
  EXPECT_NE(read_file(instance.folder / "log").find(" before main: KORV-S-00336: V"),
            std::string::npos);
  logmsg.setMethodAll(LogMethod::TO_STDERR);
  EXPECT_EXIT(std::exit(0), testing::ExitedWithCode(0), " after main: KORV-S-00336: V");
}

}  // namespace

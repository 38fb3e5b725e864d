// The status record and the formatting of its text.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "errutils/statuss.h"
#include "src/utl/fmtstatus.h"

namespace {

Status failure(Severity_e severity, int number, int os_error) {
  Status status;
  status.set(severity, static_cast<Moxstatus_e>(number), os_error);
  return status;
}

TEST(Status, FormatsTemplateParametersAndOsError) {
  Status fresh;
  EXPECT_STREQ(fresh.getText(), "KORV-I-00000: Normal successful completion");
  EXPECT_STREQ(fresh.sqlstate, "00000");

  Status open = failure(SEV_SYSTEMERR, 5500, ENOENT);
  addStatusParam(&open, "/a");
  EXPECT_STREQ(open.getText(), "KORV-S-05500: Opening file \"/a\" failed, OS status=2");
  EXPECT_STREQ(open.os_text, std::strerror(ENOENT));
  EXPECT_STREQ(open.sqlstate, "22000");

  // A parameter that is missing is empty, one that the template does not use is appended.
  Status missing = failure(SEV_SYSTEMERR, 5515, 0);
  EXPECT_STREQ(missing.getText(),
               "KORV-S-05515: Shared memory segment with key \"\" exists already");
  Status extra = failure(SEV_ERROR, 1521, 0);
  addStatusParam(&extra, "x");
  addStatusParam(&extra, "y");
  EXPECT_STREQ(extra.getText(), "KORV-E-01521: No space left on device x y");
  EXPECT_STREQ(failure(static_cast<Severity_e>(-1), 77, 0).getText(),
               "KORV-A-00077: *** Error number not in use");
}

// An empty last parameter that fits exactly is stored; a text of which nothing remains is not.
TEST(Status, ParameterThatFillsTheLastByteIsStored) {
  const struct {
    int used;  // by one parameter before, with its terminator
    const char* text;
    int stored;
    int count;
  } cases[] = {{255, "", 0, 2}, {256, "", 0, 1}, {254, "a", 1, 2}, {255, "a", 0, 1}};
  for (const auto& [used, text, stored, count] : cases) {
    SCOPED_TRACE(std::to_string(used) + " bytes used, then \"" + text + "\"");
    Status status;
    addStatusParam(&status, std::string(static_cast<std::size_t>(used - 1), 'x').c_str());
    EXPECT_EQ(addStatusParam(&status, text), stored);
    EXPECT_EQ(status.param_count, count);
  }
}

TEST(Status, EveryNumberHasItsTextAndNoOtherHasOne) {
#define EXPECT_ITS_TEXT(number, name, text) EXPECT_STREQ(Status::getText(name), text);
  MOX_NUMBERS(EXPECT_ITS_TEXT)
#undef EXPECT_ITS_TEXT
  EXPECT_STREQ(Status::getText(static_cast<Moxstatus_e>(0x10000 + 5515)),
               "Shared memory segment with key \"%1\" exists already");
  // 127 further on in the same chain.
  EXPECT_STREQ(Status::getText(static_cast<Moxstatus_e>(5515 + 127)),
               "*** Error number not in use");
  EXPECT_STREQ(Status::getText(static_cast<Moxstatus_e>(-1)), "*** Error number not in use");
}

TEST(Status, PlaceholdersThatNameNothingStayOrVanish) {
  Status status;
  status.set(SEV_SYSTEMERR, MOX_VALUE_OUT_OF_RANGE, 0, {"50%1%i\n", "acktimeout"});
  EXPECT_STREQ(
      status.getText(),
      "KORV-S-00336: Value \"50%1%i\\n\" of variable \"acktimeout\" is not in the range  to ");
}

TEST(Status, TextIsFormattedOnceUntilTheStatusIsSetAgain) {
  Status status = failure(SEV_SYSTEMERR, 5500, ENOENT);
  const std::string first = status.getText();
  addStatusParam(&status, "late");
  EXPECT_EQ(status.getText(), first);
  status.set(SEV_SYSTEMERR, MOX_OPEN_FAILED, EACCES);
  EXPECT_STREQ(status.getText(), "KORV-S-05500: Opening file \"\" failed, OS status=13");
}

TEST(Status, OverlongParametersAreCutAndNeverOverflow) {
  Status status = failure(SEV_SYSTEMERR, 5500, 0);
  EXPECT_EQ(addStatusParam(&status, std::string(200, 'a').c_str()), 200);
  EXPECT_EQ(addStatusParam(&status, std::string(100, 'b').c_str()), 54);
  EXPECT_EQ(addStatusParam(&status, "c"), 0);
  EXPECT_EQ(status.param_count, 2);
  EXPECT_EQ(std::string(status.getText()), "KORV-S-05500: Opening file \"" + std::string(200, 'a') +
                                               "\" failed, OS status=0 " + std::string(54, 'b'));
}

TEST(Status, TraceStopsAtTwentyAndAnOverlongTextSaysSo) {
  fmtstatus_errtrace = 1;
  Status status;
  status.set(SEV_ERROR, MOX_CANNOT_HAPPEN, 0, {}, {"site.cc", 7});
  pushTraceStatus(&status, "up.cc", 8);
  EXPECT_STREQ(status.getText(), "KORV-E-03360: It can't happen here [site.cc:7]\n[up.cc:8]");
  for (int i = 0; i < 25; ++i) pushTraceStatus(&status, "source.cc", i);
  EXPECT_EQ(status.trace_count, 20);
  // Wherever the piece begins that does not fit any more.
  for (std::size_t length = 30; length < 45; ++length) {
    const std::string file(length, 'f');
    for (SourcePosition& position : status.trace) position.file = file.c_str();
    status.text[0] = '\0';
    const std::string text = status.getText();
    EXPECT_LE(text.size(), 511U);
    EXPECT_TRUE(text.ends_with("TRUNCATED!")) << text;
  }
  fmtstatus_errtrace = 0;
}

}  // namespace

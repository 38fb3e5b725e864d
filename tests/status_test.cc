// The status record and the formatting of its text.
#include <gtest/gtest.h>

#include <cstring>

#include "common/base/printable.h"
#include "errutils/statuss.h"
#include "src/utl/fmtstatus.h"

namespace {

TEST(Status, FormatsTemplateParametersAndOsError) {
  Status status;
  EXPECT_STREQ(status.getText(), "KORV-I-00000: Normal successful completion");
  EXPECT_STREQ(status.sqlstate, "00000");
  EXPECT_STREQ(status.os_text, "");

  status.set(SEV_SYSTEMERR, MOX_OPEN_FAILED, ENOENT);
  addStatusParam(&status, "/a");
  const std::string text = "KORV-S-05500: Opening file \"/a\" failed, OS status=2";
  EXPECT_EQ(status.getText(), text);
  EXPECT_STREQ(status.os_text, std::strerror(ENOENT));
  EXPECT_STREQ(status.sqlstate, "22000");
  // Formatted once, until the status is set again.
  addStatusParam(&status, "late");
  EXPECT_EQ(status.getText(), text);
  status.set(SEV_SYSTEMERR, MOX_OPEN_FAILED, EACCES);
  EXPECT_STREQ(status.getText(), "KORV-S-05500: Opening file \"\" failed, OS status=13");
  EXPECT_STREQ(status.os_text, std::strerror(EACCES));
}

TEST(Status, EverySeverityHasItsLetterAndName) {
  std::string all;
  for (int severity = -1; severity <= 6; ++severity) {
    Status status;
    status.setstatus(static_cast<Severity_e>(severity), MOX_NORMAL);
    all += status.getText()[5];
    all += std::string(" ") + getNameSeverity_e(static_cast<Severity_e>(severity)) + ", ";
  }
  EXPECT_EQ(all,
            "A (Illegal), X (Illegal), I success, W warning, E error, S systemerr, A internerr, "
            "A (Illegal), ");
}

// A parameter that is missing is empty, one that the template does not use is appended.
TEST(Status, ParametersTakeTheirPlaces) {
  const struct {
    Moxstatus_e number;
    std::initializer_list<StatusParam> parameters;
    const char* text;
  } cases[] = {
      {MOX_SHM_EXISTS, {}, "KORV-E-05515: Shared memory segment with key \"\" exists already"},
      {MOX_NO_SPACE_LEFT, {"x", "y\n"}, "KORV-E-01521: No space left on device x y\\n"},
      {MOX_VALUE_OUT_OF_RANGE,
       {"50%1%i\n", "acktimeout"},
       "KORV-E-00336: Value \"50%1%i\\n\" of variable \"acktimeout\" is not in the range  to "}};
  for (const auto& [number, parameters, text] : cases) {
    Status status;
    status.set(SEV_ERROR, number, 0, parameters);
    EXPECT_STREQ(status.getText(), text);
  }
}

TEST(Status, OverlongParametersAreCutAndNeverOverflow) {
  // Used is what one parameter before takes, with its terminator.
  const std::tuple<int, const char*, int, int> cases[] = {
      {255, "", 0, 2}, {256, "", 0, 1}, {254, "a", 1, 2}, {254, "ab", 1, 2}, {255, "a", 0, 1}};
  for (const auto& [used, text, stored, count] : cases) {
    Status status;
    addStatusParam(&status, std::string(static_cast<std::size_t>(used - 1), 'x').c_str());
    EXPECT_EQ(addStatusParam(&status, text), stored) << used << text;
    EXPECT_EQ(status.param_count, count) << used << text;
  }
}

// The first and the last character of each length, and what is none or would move the cursor.
TEST(Printable, KeepsTextsOfAllLanguagesAndEscapesTheRest) {
  for (const std::string kept : {"~", "\xc2\xa0", "\xdf\xbf", "\xe0\xa0\x80", "\xed\x9f\xbf",
                                 "\xee\x80\x80", "\xf0\x90\x80\x80", "\xf4\x8f\xbf\xbf"}) {
    EXPECT_EQ(printable(kept), kept);
  }
  EXPECT_EQ(printable("\x7f\xc2\x9f\xc1\xbf\xe0\x9f\xbf"), R"(\x7f\xc2\x9f\xc1\xbf\xe0\x9f\xbf)");
  EXPECT_EQ(printable("\xed\xa0\x80\xed\xbf\xbf"), R"(\xed\xa0\x80\xed\xbf\xbf)");
  EXPECT_EQ(printable("\xf0\x8f\xbf\xbf\xf4\x90\x80\x80"), R"(\xf0\x8f\xbf\xbf\xf4\x90\x80\x80)");
  EXPECT_EQ(printable("\x80\xf5\xe2\202a\xe2\x82\r\t"), R"(\x80\xf5\xe2\x82a\xe2\x82\r\t)");
}

TEST(Status, EveryNumberHasItsTextAndNoOtherHasOne) {
#define EXPECT_ITS_TEXT(number, name, text) EXPECT_STREQ(Status::getText(name), text);
  MOX_NUMBERS(EXPECT_ITS_TEXT)
#undef EXPECT_ITS_TEXT
  EXPECT_STREQ(Status::getText(static_cast<Moxstatus_e>(0x10000 + 5515)),
               "Shared memory segment with key \"%1\" exists already");
  for (const int none : {77, 5515 + 127, -1}) {  // the second in a chain with others
    EXPECT_STREQ(Status::getText(static_cast<Moxstatus_e>(none)), "*** Error number not in use");
  }
}

TEST(Status, PositionsOfAFailureAreShownAsFarAsTheTextHasRoom) {
  fmtstatus_errtrace = 1;
  const std::string head = "KORV-E-03360: It can't happen here [site.cc:7]";
  const std::string cut = "TRUNCATED!";
  const std::size_t whole = 511 - head.size() - 5;  // of a file's name, between "\n[" and ":8]"
  const std::tuple<std::size_t, std::size_t, std::string> cases[] = {
      {1, 1, "\n[f:8]\n[f:8]"},
      {whole, 1, ("\n[" + std::string(whole - 7, 'f')).substr(0, 501 - head.size()) + cut},
      {whole - 6, 1, "\n[" + std::string(whole - 6, 'f') + ":8]\n[f:8]"},
      {whole + 1, 1, cut},
      {20, whole, "\n[" + std::string(20, 'f') + ":8]" + cut}};
  for (const auto& [first, second, shown] : cases) {
    Status status;
    status.set(SEV_ERROR, MOX_CANNOT_HAPPEN, 0, {}, {"site.cc", 7});
    const std::string files[] = {std::string(first, 'f'), std::string(second, 'f')};
    for (const std::string& file : files) pushTraceStatus(&status, file.c_str(), 8);
    EXPECT_EQ(status.getText(), head + shown);
  }
  for (const Severity_e severity : {SEV_SUCCESS, SEV_WARNING}) {
    Status status;
    status.set(severity, MOX_CANNOT_HAPPEN, 0, {}, {"site.cc", 7});
    EXPECT_TRUE(std::string(status.getText()).ends_with("happen here"));
  }
  fmtstatus_errtrace = 0;
}

}  // namespace

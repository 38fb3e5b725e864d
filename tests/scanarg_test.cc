// The standard options: the scanner, its way into the variables, and the release block.
#include "common/scanarg.h"

#include <wordexp.h>

#include "common/debugmask.h"
#include "common/releaseinfo.h"
#include "tests/support/runtime_fixture.h"

namespace {

constexpr const char* everything = "hn:p:c:C:b:d:N:P:s:l:m:D:S:k:vVt:F:f:I:";

class Scan : public RuntimeTest {
 protected:
  // The number of errors in the words and what was printed.
  std::string parse(const std::string& words, const char* options = everything) {
    static wordexp_t vector;
    wordexp(("prog " + words).c_str(), &vector, WRDE_REUSE);
    int errors = 0;
    const std::string output = printed(
        [&] { errors = scan_.parse(static_cast<int>(vector.we_wordc), vector.we_wordv, options); });
    return std::to_string(errors) + output;
  }
  // What print shows of the scan, and the fields that it leaves out, by letter.
  std::string state_after(const std::string& words) {
    EXPECT_EQ(parse(words), "0|");
    std::ostringstream rest;
    rest << "-k " << scan_.key << " sys " << scan_.sysKey << " -d " << scan_.debugMaskFlag << " -h "
         << scan_.helpFlag << " -v " << scan_.shortVersionFlag << "," << scan_.versionFlag << " -V "
         << scan_.fullVersionFlag << " -t " << scan_.timeOut << " sub " << scan_.sqlSubPort
         << " logger " << logmsgNodeno << " -S " << scan_.server << " -C " << scan_.extraConfigFile
         << " -I " << scan_.schemaDir << " -f " << scan_.inputFile;
    return printed([this] { scan_.print(); }) + rest.str();
  }

  ScanArg scan_;
};

TEST_F(Scan, OptionsOverrideTheEnvironment) {
  const char* const variables[][2] = {{"MOX_NODENO", "0x10"},    {"MOX_PORTNO", "no number"},
                                      {"MOX_CONFIG", "cfg"},     {"MOX_STARTLEVEL", "6"},
                                      {"MOX_EXTRA_CONFIG", "X"}, {"MOX_DEBUGMASK", "0xFFFFFFFF"},
                                      {"MOX_SERVER", "host:1"},  {"MOX_KEY", "-7"},
                                      {"MOX_SYSKEY", "8"},       {"KORV_SCHEMADIR", "dir"}};
  for (const auto& [name, value] : variables) setenv(name, "", 1);  // as if it were not set
  EXPECT_NE(state_after("").find(" -n 65535 -p 65535 -c (undefined) "), std::string::npos);
  EXPECT_EQ(scan_.server, nullptr);
  for (const auto& [name, value] : variables) setenv(name, value, 1);
  EXPECT_EQ(
      state_after("-f file"),
      "ScanArg::print -n 16 -p 65535 -c cfg -b 0 -d 0xffffffff -N -1 -P -1 -s 6\n"
      "|-k -7 sys 8 -d 1 -h 0 -v 0,0 -V 0 -t 0 sub 0 logger 16 -S host:1 -C X -I dir -f file");
  EXPECT_EQ(
      state_after("-n 5 -p 0xFFFE -c mine -b 7 -d fF -N 010 -P -2 -s 91 -l L -m M -D a=b -S h:2 "
                  "-k 77 -t 9 -C Y -I own -hvV -f in -D nbuffs=0 -D nbuffs=0x20 -D "
                  "sqlsub_portno=99 -D x word -v"),
      "ScanArg::print -n 5 -p 65534 -c mine -b 32 -d 0xff -N 8 -P -2 -s 91 -l L -m M -D a=b "
      "-D nbuffs=0x20 -D sqlsub_portno=99 -D x word -v\n"
      "|-k 77 sys 77 -d 1 -h 1 -v 1,1 -V 1 -t 9 sub 99 logger 5 -S h:2 -C Y -I own -f in");
}

TEST_F(Scan, ErrorsAreToldAndCounted) {
  const std::string wrong = "prog: Error in argument ";
  const std::tuple<const char*, const char*, std::string, const char*> cases[] = {
      {"-n 3", "hvVf:", "1opt: ?\n|prog: invalid option -- 'n'\n", "3"},
      {"-p abc x", "p:", "1|" + wrong + "-p abc\n", "x"},
      {"-p70000", "p:", "1|" + wrong + "prog -p70000\n", nullptr},
      {"-p '\033[2J'", "p:", "1|" + wrong + "-p \\x1b[2J\n", nullptr},
      {"-pv", "pv", "1|" + wrong + "-p \n", nullptr},
      {"-a 1 -y 2", "a:y:", "2opt: a\nopt: y\n|", nullptr},
      {"-F -- -p", "Fp:", "0|", "-p"}};
  scan_.portNo = 42;
  for (const auto& [words, options, told, operand] : cases) {
    SCOPED_TRACE(words);
    EXPECT_EQ(parse(words, options), told);
    EXPECT_STREQ(scan_.operandCount > 0 ? scan_.operands[0] : nullptr, operand);
    EXPECT_EQ(scan_.portNo, 42);
  }
  EXPECT_EQ(scan_.forceFlag, 1);
}

TEST_F(Scan, UsageShowsTheOptionsOfTheProgram) {
  const std::string head = "\nOption  (Mnemonic  ) Explanation     Environment variable\n";
  EXPECT_EQ(printed([this] { scan_.usage(""); }), head + "|");
  const std::string all = printed([this] { scan_.usage(); });
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 2 + 21);
  EXPECT_EQ(all.find(": ("), std::string::npos) << all;
  parse("", "a:Fk:");
  EXPECT_EQ(printed([this] { scan_.usage(); }),
            head +
                "    -a: ?? unknown option ??\n    -F  (Force     )\n"
                "    -k: (key      n) <key number>    MOX_KEY/MOX_SYSKEY\n|");
}

TEST_F(Scan, ListsHoldTwoHundredEntriesAndTheRestIsRefused) {
  std::string words;
  for (int i = 0; i < 201; ++i) words += " -D d" + std::to_string(i);
  words += " -n 3";
  for (int i = 0; i < 203; ++i) words += " o" + std::to_string(i);
  EXPECT_EQ(parse(words),
            "4|More than 200 definitions, refused: -D d200\n"
            "More than 200 operands, refused: the last 3\n");
  EXPECT_STREQ(scan_.definitions[199], "d199");
  EXPECT_EQ(scan_.nodeNo, 3);
  EXPECT_STREQ(scan_.operands[199], "o199");
  EXPECT_EQ(parse("one"), "0|");
  EXPECT_EQ(std::tuple(scan_.definitionCount, scan_.operandCount, scan_.refusedOperands),
            std::tuple(0, 1, 0));
}

TEST_F(Scan, NodeNumbersUseAllSixteenBitsOfTheirField) {
  const std::tuple<const char*, int, int> cases[] = {
      {"-n 40000", 40000, 40000}, {"-n -1", 0xFFFF, -1}, {"-n 65534", 65534, 65534}};
  for (const auto& [words, scanned, logged] : cases) {
    EXPECT_EQ(parse(words), "0|");
    EXPECT_EQ(scan_.nodeNo, scanned) << words;
    EXPECT_EQ(logmsgNodeno, logged) << words;
  }
}

TEST_F(Scan, NameOfAConfigurationFileNeverStopsTheOtherVariables) {
  const std::pair<std::string, const char*> cases[] = {
      {"/etc/mox.conf", "0"}, {"-5", "0"}, {"99999999999", "0"}, {"7", "7"}};
  Status status;
  for (const auto& [name, config] : cases) {
    SCOPED_TRACE(name);
    status.set(SEV_ERROR, MOX_CANNOT_HAPPEN);
    parse("-c " + name + " -s 0");
    scan_.setVariables(0, status);
    EXPECT_STREQ(status.getText(), "KORV-I-00000: Normal successful completion");
    EXPECT_EQ(value("config"), config);
    EXPECT_TRUE(VarSet::instance().get("startlevel")->isSet());
    VarSet::instance().setDefaults();
  }
  parse("-b 50");
  scan_.setVariables(0, status);
  EXPECT_EQ(status.number, MOX_VALUE_OUT_OF_RANGE);
}

TEST_F(Scan, ValuesReachTheVariablesUpToTheFirstFailure) {
  Status status;
  parse(
      "-b 300 -s 42 -d f0 -c /a -D rocommunity=a=b -D alivetime=0 -D nfragments=1099 "
      "-D loglevmap_inf=info -D syslog_facility=none -D historytime=0");
  EXPECT_EQ(
      printed([&] { scan_.setVariables(3, status); }),
      "|WRN p:P KORV-S-00384: Variables \"ntables\" and \"nfragments\" contradict each other: "
      "the first must not be above the second\nWRN p:P Variable \"loglevmap_inf\" has no "
      "effect: \"syslog_facility\" is \"none\"\np:P syslog logging disabled\n");
  EXPECT_EQ(value("nbuffs", "startlevel", "rocommunity"), "300|42|a=b");
  EXPECT_EQ(debugMask(), 0xF3U);
  VarSet::instance().constraints(status);
  EXPECT_EQ(status.number, MOX_VARIABLES_CONTRADICT);
  parse("-D nodes=3 -D acktimeout=50 -D nodes=9");
  scan_.setVariables(0, status);
  EXPECT_EQ(status.number, MOX_VALUE_OUT_OF_RANGE);
  EXPECT_EQ(status.trace_count, 1);
  EXPECT_EQ(value("nodes"), "3");
}

TEST_F(Scan, ReleaseBlockAndDescriptionOfTheProgram) {
  const std::regex block(
      "\nMox Database Server 1.0 \nVersion     : 1.0.0.0 \\[V1-0-0-0 [0-9]{4}(-[0-9]{2}){2} "
      "[0-9]{2}(:[0-9]{2}){2} [^ \\]]+\\]  \\(Linux_[0-9]+\\.[0-9]+_\\w+\\) \n\nCopyright \\(c\\) "
      "The Mox Authors.\n\nlink_time   : now\nlink_command: g%s\n\\|");
  const std::string text = printed([] { printLinkInfo(stdout, 12, "now", "g%s"); });
  EXPECT_TRUE(std::regex_match(text, block)) << text;
  EXPECT_TRUE(getCopyrightInfo(16).starts_with(getCopyrightInfo(12) + " All rights reserved.\n"));
  const std::string title = "Mox Database Server 1.0 ";
  EXPECT_EQ(getProgVersInfo(16), title + "Device setup utility");
  describeProgram(7, "A description that is cut after its fortieth character");
  EXPECT_EQ(getProgVersInfo(7), title + "A description that is cut after its fort");
  for (const int number : {-1, 8, 42}) {
    if (number != 8) describeProgram(number, "ignored");
    EXPECT_EQ(getProgVersInfo(number), title) << number;
  }
}

}  // namespace

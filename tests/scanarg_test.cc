// The standard options: the scanner, its way into the variables, and the release block.
#include "common/scanarg.h"

#include <wordexp.h>

#include <sstream>

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
  std::string state_after(const std::string& words) {
    EXPECT_EQ(parse(words), "0|");
    std::ostringstream rest;
    rest << scan_.key << " " << scan_.sysKey << " " << scan_.debugMaskFlag << scan_.helpFlag
         << scan_.versionFlag << scan_.shortVersionFlag << scan_.fullVersionFlag << " "
         << scan_.timeOut << " " << scan_.sqlSubPort << " " << logmsgNodeno << " " << scan_.server
         << scan_.extraConfigFile << scan_.schemaDir << scan_.inputFile;
    return printed([this] { scan_.print(); }) + rest.str();
  }

  ScanArg scan_;
};

TEST_F(Scan, EnvironmentComesBeforeOptions) {
  const char* const variables[][2] = {{"MOX_NODENO", "0x10"},    {"MOX_PORTNO", "no number"},
                                      {"MOX_CONFIG", "cfg"},     {"MOX_STARTLEVEL", "6"},
                                      {"MOX_EXTRA_CONFIG", "X"}, {"MOX_DEBUGMASK", "0xFFFFFFFF"},
                                      {"MOX_SERVER", "host:1"},  {"MOX_KEY", "-7"},
                                      {"MOX_SYSKEY", "8"},       {"KORV_SCHEMADIR", "dir"}};
  for (const auto& [name, value] : variables) setenv(name, value, 1);
  EXPECT_EQ(state_after("-f file"),
            "ScanArg::print -n 16 -p 65535 -c cfg -b 0 -d 0xffffffff -N -1 -P -1 -s 6\n"
            "|-7 8 10000 0 0 16 host:1Xdirfile");
  EXPECT_EQ(
      state_after("-n 5 -p 0xFFFE -c mine -b 7 -d fF -N 010 -P -2 -s 91 -l L -m M -D a=b -S h:2 "
                  "-k 77 -t 9 -C Y -I own -hvV -f in -D nbuffs=0 -D nbuffs=0x20 -D "
                  "sqlsub_portno=99 -D x word -v"),
      "ScanArg::print -n 5 -p 65534 -c mine -b 32 -d 0xff -N 8 -P -2 -s 91 -l L -m M -D a=b "
      "-D nbuffs=0x20 -D sqlsub_portno=99 -D x word -v\n"
      "|77 77 11111 9 99 5 h:2Yownin");
}

TEST_F(Scan, ErrorsAreToldAndCountedAndListsEnd) {
  const std::string wrong = "prog: Error in argument ";
  const std::tuple<const char*, const char*, std::string, const char*> cases[] = {
      {"-n 3", "hvVf:", "1opt: ?\n|prog: invalid option -- 'n'\n", "3"},
      {"-p abc x", "p:", "1|" + wrong + "-p abc\n", "x"},
      {"-p70000", "p:", "1|" + wrong + "prog -p70000\n", nullptr},
      {"-a 1 -y 2", "a:y:", "2opt: a\nopt: y\n|", nullptr},
      {"-F -- -p", "Fp:", "0|", "-p"}};
  scan_.portNo = 42;
  for (const auto& [words, options, told, operand] : cases) {
    EXPECT_EQ(parse(words, options), told);
    EXPECT_STREQ(scan_.operandCount > 0 ? scan_.operands[0] : nullptr, operand);
  }
  EXPECT_EQ(scan_.portNo + scan_.forceFlag, 43);
  parse("", "a:Fk:");
  EXPECT_EQ(printed([this] { scan_.usage(); }),
            "\nOption  (Mnemonic  ) Explanation     Environment variable\n"
            "    -a: ?? unknown option ??\n    -F  (Force     )\n"
            "    -k: (key      n) <key number>    MOX_KEY/MOX_SYSKEY\n|");

  std::string words;
  for (int i = 0; i < 201; ++i) words += " -D d" + std::to_string(i);
  for (int i = 0; i < 203; ++i) words += " o" + std::to_string(i);
  EXPECT_EQ(parse(words),
            "4|More than 200 definitions, refused: -D d200\n"
            "More than 200 operands, refused: the last 3\n");
  EXPECT_STREQ(scan_.definitions[199], "d199");
  EXPECT_STREQ(scan_.operands[199], "o199");
  EXPECT_EQ(parse("one"), "0|");
  EXPECT_EQ(scan_.definitionCount + scan_.operandCount + scan_.refusedOperands, 1);
}

TEST_F(Scan, ValuesReachTheVariablesUpToTheFirstFailure) {
  Status status;
  parse(
      "-b 300 -s 42 -d f0 -c /a -D rocommunity=a=b -D alivetime=0 -D nfragments=1099 -D "
      "loglevmap_inf=info -D "
      "syslog_facility=none -D historytime=0");
  EXPECT_EQ(
      printed([&] { scan_.setVariables(3, status); }),
      "|WRN p:P KORV-S-00384: Variables \"ntables\" and \"nfragments\" contradict each other: "
      "the first must not be above the second\nWRN p:P Variable \"loglevmap_inf\" has no "
      "effect: \"syslog_facility\" is \"none\"\np:P syslog logging disabled\n");
  EXPECT_EQ(value("nbuffs") + value("startlevel") + value("rocommunity"), "30042a=b");
  EXPECT_EQ(debugMask(), 0xF3U);
  VarSet::instance().constraints(status);
  EXPECT_EQ(status.number, MOX_VARIABLES_CONTRADICT);
  parse("-D nodes=3 -D acktimeout=50 -D nodes=9");
  scan_.setVariables(0, status);
  EXPECT_EQ(status.number, MOX_VALUE_OUT_OF_RANGE);
  EXPECT_EQ(status.trace_count, 1);
  EXPECT_EQ(value("nodes"), "3");
}

TEST_F(Scan, ReleaseBlock) {
  const std::regex block(
      "\nMox Database Server 1.0 \nVersion     : 1.0.0.0 \\[V1-0-0-0 [0-9]{4}(-[0-9]{2}){2} "
      "[0-9]{2}(:[0-9]{2}){2} [^ \\]]+\\]  \\(Linux_[0-9]+\\.[0-9]+_\\w+\\) \n\nCopyright \\(c\\) "
      "The Mox Authors.\n\nlink_command: g%s\n\\|");
  const std::string text = printed([] { printLinkInfo(stdout, 12, nullptr, "g%s"); });
  EXPECT_TRUE(std::regex_match(text, block)) << text;
}

}  // namespace

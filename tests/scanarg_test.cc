// The option scanner: options, environment, limits, its output, and the way into the variables.
#include "common/scanarg.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "common/debugmask.h"
#include "tests/runtime_fixture.h"

namespace {

constexpr const char* everything = "hn:p:c:C:b:d:N:P:s:l:m:D:S:k:vVt:F:f:I:";

class Scan : public RuntimeTest {
 protected:
  // Scans the words, which blanks separate, behind the program's name "prog".
  int parse(const std::string& words, const char* options) {
    std::istringstream stream("prog " + words);
    words_.clear();
    argv_.clear();
    for (std::string word; stream >> word;) words_.push_back(word);
    for (std::string& word : words_) argv_.push_back(word.data());
    argv_.push_back(nullptr);
    int errors = 0;
    output_ = output_of(
        [&] { errors = scan_.parse(static_cast<int>(words_.size()), argv_.data(), options); });
    return errors;
  }
  // Every field of the scanner.
  std::string state() {
    std::ostringstream rest;
    const auto text = [&rest](const char* field) { rest << " " << (field ? field : "-"); };
    rest << "keys " << scan_.key << " " << scan_.sysKey << " given " << scan_.debugMaskFlag
         << " time " << scan_.timeOut << " sub " << scan_.sqlSubPort << " logger " << logmsgNodeno
         << " flags " << scan_.helpFlag << scan_.versionFlag << scan_.shortVersionFlag
         << scan_.fullVersionFlag << scan_.forceFlag;
    for (const char* field :
         {scan_.server, scan_.extraConfigFile, scan_.schemaDir, scan_.inputFile}) {
      text(field);
    }
    return output_of([this] { scan_.print(); }).out + rest.str();
  }

  ScanArg scan_;
  std::vector<std::string> words_;
  std::vector<char*> argv_;
  Output output_;
};

TEST_F(Scan, OptionsFillTheirFields) {
  const std::string print = "ScanArg::print ";
  EXPECT_EQ(state(), print +
                         "-n 65535 -p 65535 -c (undefined) -b 0 -d 0x0 -N -1 -P -1 -s -1\n"
                         "keys -1 -1 given 0 time 0 sub 0 logger -1 flags 00000 - - - -");
  EXPECT_EQ(parse("-n 5 -p 0xFFFE -c cfg -b 7 -d fF -N 010 -P -2 -s 91 -l L -m M -D a=b -S h:1 -k "
                  "77 -t 9 -C X -I dir -hvV -f in word -v",
                  everything),
            0);
  EXPECT_EQ(state(), print +
                         "-n 5 -p 65534 -c cfg -b 7 -d 0xff -N 8 -P -2 -s 91 -l L -m M -D a=b "
                         "word -v\nkeys 77 77 given 1 time 9 sub 0 logger 5 flags 11110 h:1 X "
                         "dir in");
}

TEST_F(Scan, EnvironmentComesBeforeOptions) {
  const char* const variables[][2] = {
      {"MOX_NODENO", "0x10"},    {"MOX_PORTNO", "no number"}, {"MOX_CONFIG", "cfg"},
      {"MOX_STARTLEVEL", "6"},   {"MOX_EXTRA_CONFIG", "X"},   {"MOX_DEBUGMASK", "0xFFFFFFFF"},
      {"MOX_SERVER", "host:1"},  {"MOX_KEY", "-7"},           {"MOX_SYSKEY", "8"},
      {"KORV_SCHEMADIR", "dir"},
  };
  for (const auto& variable : variables) setenv(variable[0], variable[1], 1);
  EXPECT_EQ(parse("", everything), 0);
  EXPECT_EQ(state(),
            "ScanArg::print -n 16 -p 65535 -c cfg -b 0 -d 0xffffffff -N -1 -P -1 -s 6\nkeys -7 8 "
            "given 1 time 0 sub 0 logger 16 flags 00000 host:1 X dir -");
  EXPECT_EQ(parse("-n 5 -k 1 -c mine", everything), 0);
  EXPECT_EQ(state(),
            "ScanArg::print -n 5 -p 65535 -c mine -b 0 -d 0xffffffff -N -1 -P -1 -s 6\nkeys 1 1 "
            "given 1 time 0 sub 0 logger 5 flags 00000 host:1 X dir -");
}

TEST_F(Scan, ErrorsAreToldAndCounted) {
  const std::string wrong = "prog: Error in argument ";
  const struct {
    const char *words, *options;
    int errors;
    std::string out, err;
    const char* operand;
  } cases[] = {
      {"-n 3", "hvVf:", 1, "opt: ?\n", "prog: invalid option -- 'n'\n", "3"},
      {"-f", "f:", 1, "opt: ?\n", "prog: option requires an argument -- 'f'\n", nullptr},
      {"-p abc x", "p:", 1, "", wrong + "-p abc\n", "x"},
      {"-p70000", "p:", 1, "", wrong + "prog -p70000\n", nullptr},
      {"-b 99999999999999999999", "b:", 1, "", wrong + "-b 99999999999999999999\n", nullptr},
      {"-d xyz -s -", "d:s:", 2, "", wrong + "-d xyz\n" + wrong + "-s -\n", nullptr},
      {"-a 1 -y 2", "a:y:", 2, "opt: a\nopt: y\n", "", nullptr},
      {"-v create -V", "hvVf:", 0, "", "", "create"},
      {"-v -- -V", "hvVf:", 0, "", "", "-V"},
      {"-p -D", "pD", 2, "", wrong + "prog -p\n" + wrong + "-p -D\n", nullptr},
  };
  for (const auto& c : cases) {
    scan_.portNo = 42;
    EXPECT_EQ(parse(c.words, c.options), c.errors);
    EXPECT_EQ(output_.out, c.out);
    EXPECT_EQ(output_.err, c.err);
    EXPECT_STREQ(scan_.operandCount > 0 ? scan_.operands[0] : nullptr, c.operand);
    EXPECT_EQ(scan_.portNo, 42);
  }
}

TEST_F(Scan, DefinitionsWithFieldsOfTheirOwn) {
  EXPECT_EQ(parse("-D nbuffs=0 -D nbuffs=0x20 -D sqlsub_portno=99 -D x -D nbuffs=many", "D:"), 0);
  EXPECT_EQ(scan_.definitionCount, 4);
  EXPECT_EQ(scan_.buffers, 32);
  EXPECT_EQ(scan_.sqlSubPort, 99);
}

TEST_F(Scan, ListsRefuseWhatIsBeyondTheirEnd) {
  std::string words;
  for (int i = 0; i < 202; ++i) words += " -D d" + std::to_string(i);
  for (int i = 0; i < 203; ++i) words += " o" + std::to_string(i);
  EXPECT_EQ(parse(words, "D:"), 5);
  EXPECT_EQ(output_.err,
            "More than 200 definitions, refused: -D d200\n"
            "More than 200 definitions, refused: -D d201\n"
            "More than 200 operands, refused: the last 3\n");
  EXPECT_STREQ(scan_.definitions[199], "d199");
  EXPECT_STREQ(scan_.operands[199], "o199");
  EXPECT_EQ(scan_.refusedOperands, 3);
  EXPECT_EQ(parse("one", "D:"), 0);
  EXPECT_EQ(scan_.definitionCount + scan_.operandCount + scan_.refusedOperands, 1);
}

TEST_F(Scan, UsageTable) {
  const std::string head = "\nOption  (Mnemonic  ) Explanation     Environment variable\n";
  EXPECT_EQ(output_of([this] { scan_.usage("hvVf:"); }).out,
            head +
                "    -h  (help      )\n    -v  (version   )\n    -V  (Version   )\n"
                "    -f: (input    f) <input file>\n");
  EXPECT_EQ(output_of([this] { scan_.usage(nullptr); }).out, head);
  EXPECT_EQ(
      output_of([this] { scan_.usage("a:n:"); }).out,
      head + "    -a: ?? unknown option ??\n    -n: (node     n) <node number>   MOX_NODENO\n");
  const std::string all = output_of([this] { scan_.usage(); }).out;
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 2 + 21);
  parse("", "k:");
  EXPECT_EQ(output_of([this] { scan_.usage(); }).out,
            head + "    -k: (key      n) <key number>    MOX_KEY/MOX_SYSKEY\n");
}

TEST_F(Scan, ValuesReachTheVariables) {
  Status status;
  parse("-b 300 -s 42 -d f0 -c /a -D historytime=3 -D backup_tape=x -D rocommunity=a=b",
        everything);
  scan_.setVariables(3, status);
  EXPECT_FALSE(status.failed()) << status.getText();
  EXPECT_EQ(number("historytime"), 3);
  EXPECT_EQ(number("nbuffs"), 300);
  EXPECT_EQ(number("startlevel"), 42);
  EXPECT_EQ(text("rocommunity"), "a=b");
  EXPECT_EQ(debugMask(), 0xF3U);
}

TEST_F(Scan, SettingStopsAtTheFirstFailure) {
  const struct {
    const char *words, *text;
  } cases[] = {
      {"-D acktimeout=50 -D nodes=9",
       "KORV-S-00336: Value \"50\" of variable \"acktimeout\" is not in the range 100 to 5000"},
      {"-D nodes -D nodes=9", "KORV-S-00368: Value \"\" of variable \"nodes\" is not a number"},
      {"-D inetd=x -b 200",
       "KORV-S-00352: Value \"x\" of variable \"inetd\" is none of: auto|yes|no"},
  };
  for (const auto& c : cases) {
    Status status;
    parse(c.words, everything);
    scan_.setVariables(0, status);
    EXPECT_STREQ(status.getText(), c.text);
    EXPECT_EQ(status.trace_count, 1);
    EXPECT_STREQ(status.trace[0].file, "common/scanarg.cc");
    EXPECT_FALSE(VarSet::instance().get("nodes")->isSet());
  }
}

}  // namespace

// The option scanner: options, environment, limits, its output, and the way into the variables.
#include "common/scanarg.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "common/debugmask.h"
#include "common/logger.h"
#include "common/variables.h"
#include "tests/scratch.h"

namespace {

constexpr const char* everything = "hn:p:c:C:b:d:N:P:s:l:m:D:S:k:vVt:F:f:I:";

class Scan : public testing::Test {
 protected:
  Scan() { clear(); }
  ~Scan() override {
    clear();
    VarSet::instance().setDefaults();
    logmsg.newConfig();
  }
  static void clear() {
    logmsgNodeno = -1;
    for (const char* name : {"PORTNO", "NODENO", "CONFIG", "EXTRA_CONFIG", "STARTLEVEL",
                             "DEBUGMASK", "SERVER", "KEY", "SYSKEY"}) {
      unsetenv(("MOX_" + std::string(name)).c_str());
    }
    unsetenv("KORV_SCHEMADIR");
  }
  // Scans the words behind the program's name "prog".
  int parse(const std::vector<std::string>& words, const char* options) {
    words_ = words;
    words_.insert(words_.begin(), "prog");
    argv_.clear();
    for (std::string& word : words_) argv_.push_back(word.data());
    argv_.push_back(nullptr);
    int errors = 0;
    output_ = output_of(
        [&] { errors = scan_.parse(static_cast<int>(words_.size()), argv_.data(), options); });
    return errors;
  }
  std::string printed() {
    return output_of([this] { scan_.print(); }).out;
  }

  ScanArg scan_;
  std::vector<std::string> words_;
  std::vector<char*> argv_;
  Output output_;
};

TEST_F(Scan, EveryOptionFillsItsField) {
  EXPECT_EQ(parse({"-n", "5",   "-p",   "0xFFFE", "-c", "cfg",  "-b", "7", "-d", "fF",
                   "-N", "010", "-P",   "-2",     "-s", "91",   "-l", "L", "-m", "M",
                   "-D", "a=b", "-S",   "h:1",    "-k", "77",   "-t", "9", "-C", "X",
                   "-I", "dir", "-hvV", "-f",     "in", "word", "-v"},
                  everything),
            0);
  EXPECT_EQ(printed(),
            "ScanArg::print -n 5 -p 65534 -c cfg -b 7 -d 0xff -N 8 -P -2 -s 91 -l L -m M -D a=b "
            "word -v\n");
  EXPECT_EQ(scan_.debugMaskFlag, 1);
  EXPECT_STREQ(scan_.server, "h:1");
  EXPECT_STREQ(scan_.extraConfigFile, "X");
  EXPECT_STREQ(scan_.schemaDir, "dir");
  EXPECT_STREQ(scan_.inputFile, "in");
  EXPECT_EQ(scan_.key + scan_.sysKey + scan_.timeOut, 77 + 77 + 9);
  EXPECT_EQ(scan_.helpFlag + scan_.versionFlag + scan_.shortVersionFlag + scan_.fullVersionFlag, 4);
  EXPECT_EQ(scan_.forceFlag, 0);
  EXPECT_EQ(logmsgNodeno, 5);
}

TEST_F(Scan, FieldsBeforeScanning) {
  EXPECT_EQ(printed(),
            "ScanArg::print -n 65535 -p 65535 -c (undefined) -b 0 -d 0x0 -N -1 -P -1 -s -1\n");
  EXPECT_EQ(parse({}, "hvVf:"), 0);
  EXPECT_EQ(scan_.key, -1);
  EXPECT_EQ(scan_.operandCount + scan_.versionFlag + scan_.forceFlag, 0);
}

TEST_F(Scan, ErrorsAreToldAndCounted) {
  const struct {
    std::vector<std::string> words;
    const char* options;
    int errors;
    std::string out;
    std::string err;
    const char* operand;
  } cases[] = {
      {{"-n", "3"}, "hvVf:", 1, "opt: ?\n", "prog: invalid option -- 'n'\n", "3"},
      {{"-f"}, "hvVf:", 1, "opt: ?\n", "prog: option requires an argument -- 'f'\n", nullptr},
      {{"-p", "abc", "x"}, "p:", 1, "", "prog: Error in argument -p abc\n", "x"},
      {{"-p70000"}, "p:", 1, "", "prog: Error in argument prog -p70000\n", nullptr},
      {{"-b", "99999999999999999999"},
       "b:",
       1,
       "",
       "prog: Error in argument -b 99999999999999999999\n",
       nullptr},
      {{"-d", "xyz", "-s", ""},
       "d:s:",
       2,
       "",
       "prog: Error in argument -d xyz\nprog: Error in argument -s \n",
       nullptr},
      {{"-a", "1", "-y", "2"}, "a:y:", 2, "opt: a\nopt: y\n", "", nullptr},
      {{"-v", "create", "-V"}, "hvVf:", 0, "", "", "create"},
      {{"-v", "--", "-V"}, "hvVf:", 0, "", "", "-V"},
      {{"-p"}, "p", 1, "", "prog: Error in argument prog -p\n", nullptr},
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

TEST_F(Scan, EnvironmentComesBeforeOptions) {
  setenv("MOX_NODENO", "0x10", 1);
  setenv("MOX_PORTNO", "no number", 1);
  setenv("MOX_CONFIG", "cfg", 1);
  setenv("MOX_EXTRA_CONFIG", "extra", 1);
  setenv("MOX_STARTLEVEL", "6", 1);
  setenv("MOX_DEBUGMASK", "0xFFFFFFFF", 1);
  setenv("MOX_SERVER", "host:1", 1);
  setenv("MOX_KEY", "-7", 1);
  setenv("MOX_SYSKEY", "8", 1);
  setenv("KORV_SCHEMADIR", "dir", 1);
  EXPECT_EQ(parse({}, everything), 0);
  EXPECT_EQ(printed(),
            "ScanArg::print -n 16 -p 65535 -c cfg -b 0 -d 0xffffffff -N -1 -P -1 -s 6\n");
  EXPECT_EQ(scan_.key, -7);
  EXPECT_EQ(scan_.sysKey, 8);
  EXPECT_STREQ(scan_.extraConfigFile, "extra");
  EXPECT_STREQ(scan_.server, "host:1");
  EXPECT_STREQ(scan_.schemaDir, "dir");
  EXPECT_EQ(logmsgNodeno, 16);
  EXPECT_EQ(parse({"-n", "5", "-k", "1"}, everything), 0);
  EXPECT_EQ(scan_.nodeNo, 5);
  EXPECT_EQ(scan_.key + scan_.sysKey, 2);
  EXPECT_EQ(logmsgNodeno, 5);
}

TEST_F(Scan, DefinitionsWithFieldsOfTheirOwn) {
  EXPECT_EQ(parse({"-D", "nbuffs=0", "-D", "nbuffs=0x20", "-D", "sqlsub_portno=99", "-D", "x", "-D",
                   "nbuffs=many"},
                  "D:"),
            0);
  EXPECT_EQ(scan_.definitionCount, 4);
  EXPECT_EQ(scan_.buffers, 32);
  EXPECT_EQ(scan_.sqlSubPort, 99);
}

TEST_F(Scan, ListsRefuseWhatIsBeyondTheirEnd) {
  std::vector<std::string> words;
  for (int i = 0; i < 202; ++i) words.insert(words.end(), {"-D", "d" + std::to_string(i)});
  for (int i = 0; i < 203; ++i) words.push_back("o" + std::to_string(i));
  EXPECT_EQ(parse(words, "D:"), 5);
  EXPECT_EQ(output_.err,
            "More than 200 definitions, refused: -D d200\n"
            "More than 200 definitions, refused: -D d201\n"
            "More than 200 operands, refused: the last 3\n");
  EXPECT_STREQ(scan_.definitions[199], "d199");
  EXPECT_STREQ(scan_.operands[199], "o199");
  EXPECT_EQ(scan_.refusedOperands, 3);
  EXPECT_EQ(parse({"one"}, "D:"), 0);
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
  parse({}, "k:");
  EXPECT_EQ(output_of([this] { scan_.usage(); }).out,
            head + "    -k: (key      n) <key number>    MOX_KEY/MOX_SYSKEY\n");
}

TEST_F(Scan, ValuesReachTheVariables) {
  Status status;
  parse({"-b", "300", "-s", "42", "-d", "f0", "-c", "/etc/mox.conf", "-D", "historytime=3", "-D",
         "backup_tape=x", "-D", "rocommunity=a=b"},
        everything);
  scan_.setVariables(3, status);
  EXPECT_FALSE(status.failed()) << status.getText();
  const VarSet& variables = VarSet::instance();
  EXPECT_EQ(variables.get("historytime")->number(), 3);
  EXPECT_EQ(variables.get("nbuffs")->number(), 300);
  EXPECT_EQ(variables.get("startlevel")->number(), 42);
  EXPECT_EQ(variables.get("rocommunity")->text(), "a=b");
  EXPECT_EQ(debugMask(), 0xF3U);
}

TEST_F(Scan, SettingStopsAtTheFirstFailure) {
  const struct {
    std::vector<std::string> words;
    const char* text;
  } cases[] = {
      {{"-D", "acktimeout=50", "-D", "nodes=9"},
       "KORV-S-00336: Value \"50\" of variable \"acktimeout\" is not in the range 100 to 5000"},
      {{"-D", "nodes", "-D", "nodes=9"},
       "KORV-S-00368: Value \"\" of variable \"nodes\" is not a number"},
      {{"-b", "99"},
       "KORV-S-00336: Value \"99\" of variable \"nbuffs\" is not in the range 100 "
       "to 2147483647"},
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

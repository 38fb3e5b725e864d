// The configuration variables: the table, setting and reading, checks between variables, and the
// functions for C.
#include "common/variables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "common/cvariables.h"
#include "common/logger.h"
#include "tests/scratch.h"

namespace {

class Variables : public testing::Test {
 protected:
  Variables() {
    vars_.set("historytime", 0, status_);
    logmsg.newConfig();
  }
  ~Variables() override {
    vars_.setDefaults();
    logmsg.newConfig();
  }
  // The text of the status that setting gives, empty when it succeeded.
  std::string failure(const char* name, const std::string& value) {
    vars_.set(name, value.c_str(), status_);
    return status_.failed() ? status_.getText() : "";
  }

  VarSet& vars_ = VarSet::instance();
  Status status_;
};

TEST_F(Variables, TableHasEveryDefinition) {
  VariableDict dict;
  defineVariables(dict);
  std::map<Variable::Kind, int> kinds;
  std::set<std::string> names;
  VariableDictIter iterator(dict);
  while (const Variable* variable = iterator.next()) {
    ++kinds[variable->kind()];
    EXPECT_TRUE(names.insert(variable->name()).second) << variable->name();
    EXPECT_EQ(dict.find(variable->name()), variable);
    EXPECT_FALSE(variable->isSet());
  }
  // One of the 133 integer definitions takes the place of an earlier one.
  EXPECT_EQ(kinds[Variable::INTEGER], 132);
  EXPECT_EQ(kinds[Variable::STRING], 40);
  EXPECT_EQ(kinds[Variable::OBSOLETE], 28);
}

TEST_F(Variables, EveryDefaultIsAValueOfItsVariable) {
  VariableDict dict;
  defineVariables(dict);
  VariableDictIter iterator(dict);
  while (Variable* variable = iterator.next()) {
    if (variable->kind() != Variable::INTEGER) continue;
    variable->set(std::string(variable->text()).c_str(), status_);
    EXPECT_FALSE(status_.failed()) << status_.getText();
  }
}

TEST_F(Variables, HashOfNames) {
  const struct {
    const char* name;
    std::uint32_t hash;
  } cases[] = {{"", 0U},
               {"a", 36320777U},
               {"ab", 1056466927U},
               {"historytime", 2712245385U},
               {"\xE4", 85372548U}};
  for (const auto& c : cases) EXPECT_EQ(VarKey::hash(c.name), c.hash) << c.name;
}

TEST_F(Variables, RefusedValuesSayWhyAndChangeNothing) {
  const struct {
    const char* name;
    std::string value;
    std::string text;
  } cases[] = {
      {"acktimeout", "99",
       "KORV-S-00336: Value \"99\" of variable \"acktimeout\" is not in the range 100 to 5000"},
      {"acktimeout", "5001",
       "KORV-S-00336: Value \"5001\" of variable \"acktimeout\" is not in the range 100 to 5000"},
      {"nlock", "99999999999999999999",
       "KORV-S-00336: Value \"99999999999999999999\" of variable \"nlock\" is not in the range "
       "20000 to 2147483647"},
      {"nlock", "2147483648",
       "KORV-S-00336: Value \"2147483648\" of variable \"nlock\" is not in the range 20000 to "
       "2147483647"},
      {"acktimeout", "", "KORV-S-00368: Value \"\" of variable \"acktimeout\" is not a number"},
      {"acktimeout", "500 ",
       "KORV-S-00368: Value \"500 \" of variable \"acktimeout\" is not a number"},
      {"acktimeout", "5e2",
       "KORV-S-00368: Value \"5e2\" of variable \"acktimeout\" is not a number"},
      {"acktimeout", std::string(1000, 'x'),
       "KORV-S-00368: Value \"" + std::string(60, 'x') +
           "...\" of variable \"acktimeout\" is not a number"},
      {"sql_trace", "ful",
       "KORV-S-00352: Value \"ful\" of variable \"sql_trace\" is none of: none|short|full"},
      {"sql_trace", "none|short",
       "KORV-S-00352: Value \"none|short\" of variable \"sql_trace\" is none of: none|short|full"},
      {"inetd", "", "KORV-S-00352: Value \"\" of variable \"inetd\" is none of: auto|yes|no"},
  };
  for (const auto& c : cases) {
    const std::string before = vars_.get(c.name)->text();
    EXPECT_EQ(failure(c.name, c.value), c.text);
    EXPECT_EQ(vars_.get(c.name)->text(), before);
    EXPECT_FALSE(vars_.get(c.name)->isSet());
  }
  vars_.set("sql_trace", 7, status_);
  EXPECT_STREQ(status_.getText(),
               "KORV-S-00352: Value \"7\" of variable \"sql_trace\" is none of: none|short|full");
}

TEST_F(Variables, AcceptedValues) {
  const struct {
    const char* name;
    const char* value;
    int number;
    const char* text;
  } cases[] = {
      {"acktimeout", "100", 100, "100"},
      {"acktimeout", "5000", 5000, "5000"},
      {"nlock", "0x7fffffff", 2147483647, "2147483647"},
      {"msgkey", "010", 8, "8"},
      {"repairlimit", "0", 0, "0"},
      {"repairlimit", "301", 301, "301"},
      {"syslog_facility", "", 0, ""},
      {"syslog_facility", "cron", 0, "cron"},
      {"defaultversion", "4", 0, "4"},
      {"rocommunity", "%s any %n", 0, "%s any %n"},
      {"backup_tape", "x", 0, ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(failure(c.name, c.value), "");
    EXPECT_EQ(vars_.get(c.name)->number(), c.number) << c.name;
    EXPECT_EQ(vars_.get(c.name)->text(), c.text);
  }
  vars_.set("defaultversion", 3, status_);
  EXPECT_EQ(vars_.get("defaultversion")->text(), "3");
  EXPECT_FALSE(vars_.get("backup_tape")->isSet());
}

TEST_F(Variables, ReadGivesTheCallersDefaultUntilTheVariableIsSet) {
  int number = 0;
  char* text = nullptr;
  vars_.read("nbuffs", &number, -5, status_);
  EXPECT_EQ(number, -5);
  vars_.read("logfile", &text, "mine", status_);
  EXPECT_STREQ(text, "mine");
  EXPECT_EQ(failure("nbuffs", "200") + failure("logfile", "theirs"), "");
  vars_.read("nbuffs", &number, -5, status_);
  EXPECT_EQ(number, 200);
  vars_.read("nbuffs", &text, "", status_);
  EXPECT_STREQ(text, "200");
  vars_.read("logfile", &text, "mine", status_);
  EXPECT_STREQ(text, "theirs");
  vars_.read("logfile", &number, 7, status_);
  EXPECT_EQ(number, 7);
  EXPECT_STREQ(status_.getText(),
               "KORV-S-00368: Value \"theirs\" of variable \"logfile\" is not a number");
}

TEST_F(Variables, UnknownNamesAreLogged) {
  int number = 0;
  const Output output = output_of([&] {
    EXPECT_EQ(failure("Nbuffs", "1"), "KORV-S-00320: No variable with this name Nbuffs");
    vars_.read("", &number, 3, status_);
  });
  const std::string head = "WRN p:" + std::to_string(getpid()) + " No variable named ";
  EXPECT_EQ(output.err, head + "Nbuffs.\n" + head + ".\n");
  EXPECT_EQ(number, 3);
}

TEST_F(Variables, PrintListsAllByName) {
  const Output output = output_of([&] { vars_.print(stdout); });
  EXPECT_TRUE(
      output.out.starts_with("accessinfo_disable = 0\nacktimeout = 500\naliveint = 1250\n"));
  EXPECT_EQ(std::count(output.out.begin(), output.out.end(), '\n'), 200);
}

TEST_F(Variables, ContradictionsAndSettingsWithoutEffect) {
  vars_.constraints(status_);
  EXPECT_FALSE(status_.failed()) << status_.getText();
  EXPECT_EQ(failure("alivetime", "0") + failure("nfragments", "1099"), "");
  EXPECT_EQ(failure("syslog_ident", "x") + failure("syslog_facility", "none"), "");
  EXPECT_EQ(failure("sql_shm_gclvl", "1"), "");
  const std::string contradiction =
      "KORV-S-00384: Variables \"ntables\" and \"nfragments\" contradict each other: the first "
      "must not be above the second";
  vars_.constraints(status_);
  EXPECT_EQ(status_.getText(), contradiction);
  const Output output = output_of([&] { vars_.depend_check(); });
  const std::string head = "WRN p:" + std::to_string(getpid()) + " ";
  EXPECT_EQ(output.err, head + contradiction + "\n" + head +
                            "Variable \"syslog_ident\" has no effect: \"syslog_facility\" is "
                            "\"none\"\n");
}

TEST_F(Variables, FunctionsForC) {
  int number = 0;
  char* text = nullptr;
  EXPECT_EQ(varSetInt("nodes", 4), 0);
  EXPECT_EQ(varSetChar("nodes", "x"), 368);
  EXPECT_EQ(varSetInt("nodes", -1), 336);
  EXPECT_EQ(varGetInt("nodes", &number, 9), 0);
  EXPECT_EQ(number, 4);
  EXPECT_EQ(varSetChar("sql_fork", "no") + varGetChar("sql_fork", &text, ""), 0);
  EXPECT_STREQ(text, "no");
  cSetDefaultVariables();
  EXPECT_EQ(varGetInt("nodes", &number, 9), 0);
  EXPECT_EQ(number, 9);

  const ScratchFolder folder;
  write_file(folder / "conf", "set nodes \"6\"\n");
  EXPECT_EQ(cScanConf((folder / "conf").c_str()), 0);
  EXPECT_EQ(vars_.get("nodes")->number(), 6);
}

}  // namespace

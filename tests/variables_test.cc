// The configuration variables: the table, setting and reading, checks between variables, and the
// functions for C.
#include "common/variables.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "common/cvariables.h"
#include "tests/runtime_fixture.h"

namespace {

class Variables : public RuntimeTest {
 protected:
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
    if (variable->kind() != Variable::INTEGER) continue;
    const std::string initial = variable->text();
    EXPECT_EQ(failure(variable->name(), initial), "");
  }
  const Output output = output_of([this] { vars_.print(stdout); });
  EXPECT_TRUE(output.out.starts_with("accessinfo_disable = 0\nacktimeout = 500\n"));
  EXPECT_EQ(std::count(output.out.begin(), output.out.end(), '\n'), 200);
  // One of the 133 integer definitions takes the place of an earlier one.
  EXPECT_EQ(kinds[Variable::INTEGER], 132);
  EXPECT_EQ(kinds[Variable::STRING], 40);
  EXPECT_EQ(kinds[Variable::OBSOLETE], 28);
}

TEST_F(Variables, HashOfNames) {
  EXPECT_EQ(VarKey::hash(""), 0U);
  EXPECT_EQ(VarKey::hash("ab"), 1056466927U);
  EXPECT_EQ(VarKey::hash("historytime"), 2712245385U);
  EXPECT_EQ(VarKey::hash("\xE4"), 85372548U);
}

TEST_F(Variables, RefusedValuesSayWhyAndChangeNothing) {
  const std::string timeouts = "\" of variable \"acktimeout\" is not in the range 100 to 5000";
  const std::string locks = "\" of variable \"nlock\" is not in the range 20000 to 2147483647";
  const std::string no_number = "\" of variable \"acktimeout\" is not a number";
  const std::string traces = "\" of variable \"sql_trace\" is none of: none|short|full";
  const std::string long_text(60, 'x');
  const struct {
    const char* name;
    std::string value, number, reason;
  } cases[] = {
      {"acktimeout", "99", "336", "99" + timeouts},
      {"acktimeout", "5001", "336", "5001" + timeouts},
      {"nlock", "99999999999999999999", "336", "99999999999999999999" + locks},
      {"nlock", "2147483648", "336", "2147483648" + locks},
      {"nlock", "-2147483649", "336", "-2147483649" + locks},
      {"acktimeout", "", "368", no_number},
      {"acktimeout", "500 ", "368", "500 " + no_number},
      {"acktimeout", "5e2", "368", "5e2" + no_number},
      {"acktimeout", long_text + long_text, "368", long_text + "..." + no_number},
      {"sql_trace", "ful", "352", "ful" + traces},
      {"sql_trace", "none|short", "352", "none|short" + traces},
      {"inetd", "", "352", "\" of variable \"inetd\" is none of: auto|yes|no"},
  };
  for (const auto& c : cases) {
    const std::string before = text(c.name);
    EXPECT_EQ(failure(c.name, c.value), "KORV-S-00" + c.number + ": Value \"" + c.reason);
    EXPECT_EQ(text(c.name), before);
    EXPECT_FALSE(vars_.get(c.name)->isSet());
  }
}

TEST_F(Variables, AcceptedValues) {
  const struct {
    const char *name, *value;
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
    EXPECT_EQ(number(c.name), c.number) << c.name;
    EXPECT_EQ(text(c.name), c.text);
  }
  vars_.set("defaultversion", 3, status_);
  EXPECT_EQ(text("defaultversion"), "3");
  EXPECT_FALSE(vars_.get("backup_tape")->isSet());
}

TEST_F(Variables, ReadGivesTheCallersDefaultUntilTheVariableIsSet) {
  int number = 0;
  char* text = nullptr;
  vars_.read("nbuffs", &number, -5, status_);
  vars_.read("logfile", &text, "mine", status_);
  EXPECT_EQ(number, -5);
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
  const Output output = logged([&] {
    EXPECT_EQ(failure("Nbuffs", "1"), "KORV-S-00320: No variable with this name Nbuffs");
    vars_.read("", &number, 3, status_);
  });
  const std::string head = "WRN " + process_ + "No variable named ";
  EXPECT_EQ(output.err, head + "Nbuffs.\n" + head + ".\n");
  EXPECT_EQ(number, 3);
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
  const std::string head = "WRN " + process_;
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

  write_file(folder_ / "conf", "set nodes \"6\"\n");
  EXPECT_EQ(cScanConf((folder_ / "conf").c_str()), 0);
  EXPECT_EQ(VarSet::instance().get("nodes")->number(), 6);
}

}  // namespace

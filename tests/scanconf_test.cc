// Configuration files and the variables that they set: every kind of line, every fault, retries.
#include "common/scanconf.h"

#include <thread>

#include "tests/support/runtime_fixture.h"

namespace {

class Configuration : public RuntimeTest {
 protected:
  // What is printed while the path is read, without real pauses; the file comes at one of them.
  std::string scan(const std::string& path, int file_comes_at = 0) {
    logmsg.newConfig();
    int pauses = 0;
    const auto pause = [&] {
      if (++pauses == file_comes_at) write_file(path, "debug 1 here\n");
    };
    return printed([&] { scanConf(path.c_str(), record_, status_, pause); });
  }
  std::string scan_text(const std::string& text) {
    write_file(path_, text);
    return scan(path_);
  }
  std::string recorded() const {
    std::ostringstream all;
    const auto add = [&all](const auto&... fields) { ((all << "[" << fields << "]"), ...); };
    for (const auto& p : record_.processes) add(p.name, p.node, p.kind, p.command);
    for (const auto& n : record_.nodes) add(n.number, n.unit, n.host, n.port, n.site, n.text);
    for (const auto& d : record_.dunits) add(d.name, d.number, d.kind, d.text);
    for (const auto& s : record_.sites) add(s.name, s.number, s.text);
    for (const auto& d : record_.debugs) add(d.mask, d.text);
    return all.str();
  }

  const std::string path_ = folder_ / "conf";
  ConfigRecord record_;
  Status status_;
};

TEST_F(Configuration, EveryKindOfLine) {
  const std::string text(1023, 't');
  EXPECT_EQ(
      scan_text("process p\t1  -0x2 \"cmd \"quoted\" x\" \r\nnode 1 010 host 3 site the text\n"
                "\n  \r\ndunit d 4 5 text with blanks \nnode 1 2 b 2 b b\nset Nlock \"1\"\n"
                "debug 0xff m\r\nset corefileprefix \"a \"b\" %s\"  \nset nodes \"0x10\"\r\n"
                "set backup_tape \"x\"\nset repairlimit \"301\"\nsite s 6 " +
                text),
      "|WRN p:P SH: Node allready entered!\nWRN p:P No variable named Nlock.\n"
      "WRN p:P Config. file line 7: KORV-S-00320: No variable with this name Nlock\n");
  EXPECT_EQ(recorded(),
            "[p][1][-2][cmd \"quoted\" x][1][8][host][3][site][the text]"
            "[d][4][5][text with blanks ][s][6][" +
                text + "][255][m]");
  EXPECT_EQ(value("corefileprefix", "nodes", "backup_tape", "repairlimit"), "a \"b\" %s|16||301");
}

TEST_F(Configuration, FaultLinesAreToldAndSkipped) {
  const std::string text(1024, 't');
  const std::string nodes = "\" of variable \"nodes\" is not ";
  const std::string zero(1, '\0');
  const std::pair<std::string, std::string> cases[] = {
      {std::string(5000, 'x'), "Illegal keyword"},
      {"set" + zero + " x \"1\"", "Illegal param.s (0) after 'set'"},
      {"process p 1 x \"c\"", "Illegal param.s (2) after 'process'"},
      {"process p 1 2 \"" + text + "\"", "Process line not terminated by \""},
      {"process p 1 2 \"c\"" + zero + "\"", "Process line not terminated by \""},
      {"node 1 2 h 4294967296 s t", "Illegal param.s (3) after 'node'"},
      {"node 1 2 h 3 s " + text, "Illegal param.s (6) after 'node'"},
      {"dunit d 1 2 cut\rhere", "Illegal param.s (4) after 'dunit'"},
      {"site s t 1", "Illegal param.s (1) after 'site'"},
      {"debug 1", "Illegal param.s (1) after 'debug'"},
      {"debug 1x t", "Illegal param.s (0) after 'debug'"},
      {"set nodes", "Illegal param.s (1) after 'set'"},
      {"set nodes \"7", "Set line not terminated by \""},
      {"set nodes 7\"", "Set line not terminated by \""},
      {"set nodes \"-1\"", "KORV-S-00336: Value \"-1" + nodes + "in the range 0 to 4096"},
      {"set nodes \"\"", "KORV-S-00368: Value \"" + nodes + "a number"},
      {"set nodes \"7 \"", "KORV-S-00368: Value \"7 " + nodes + "a number"},
      {"set inetd \"yes|no\"",
       "KORV-S-00352: Value \"yes|no\" of variable \"inetd\" is none of: auto|yes|no"}};
  for (const auto& [line, told] : cases) {
    SCOPED_TRACE(line);
    const bool refused = told.starts_with("KORV");
    EXPECT_EQ(scan_text("debug 1 first\n" + line + "\ndebug 2 last\n"),
              refused ? "|WRN p:P Config. file line 2: " + told + "\n"
                      : "|" + told + " in config. file at line 2. Line ignored.\n");
    EXPECT_EQ(status_.failed(), refused);
    EXPECT_EQ(recorded(), "[1][first][2][last]");
    EXPECT_EQ(value("nodes", "inetd"), "2|");
  }
  scan_text("set no_such \"1\"\nset nodes \"x\"\n");
  EXPECT_EQ(status_.number, MOX_NO_SUCH_VARIABLE);  // the first of several
}

TEST_F(Configuration, OpeningIsTriedTenTimesAndReadingSixTimes) {
  const std::string tried = "p:P tried to open:" + path_ + "\n";
  std::string all;
  for (int i = 0; i < 10; ++i) all += tried;
  EXPECT_EQ(scan(path_), "|" + all);
  EXPECT_EQ(status_.getText(), "KORV-S-05500: Opening file \"" + path_ + "\" failed, OS status=2");
  EXPECT_EQ(scan(path_, 2), "|" + tried + tried);

  fs::remove(path_);
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  scan(path_);
  EXPECT_EQ(status_.getText(), "KORV-S-05500: Opening file \"" + path_ + "\" failed, OS status=6");

  const std::string failed =
      "WRN p:P error reading:/proc, fgets() failed,Unix errno=21: Is a directory\n";
  all = failed;
  for (int i = 0; i < 5; ++i) all += "p:P trying to re-open cfg file\n" + failed;
  EXPECT_EQ(scan("/proc"), "|" + all);
  EXPECT_STREQ(status_.getText(), "KORV-S-05502: Reading file \"/proc\" failed, OS status=21");
  scan("/dev/zero");
  EXPECT_STREQ(status_.getText(), "KORV-S-05502: Reading file \"/dev/zero\" failed, OS status=27");
}

TEST_F(Configuration, PipeIsReadToItsEndOnceItHasAWriter) {
  // As the shell's <(...) makes one: its writer has gone, and what it wrote is there.
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  write_file("/dev/fd/" + std::to_string(ends[1]), "debug 1 piped\n");
  close(ends[1]);
  for (const char* const expected : {"[1][piped]", ""}) {  // an empty file the second time
    EXPECT_EQ(scan("/dev/fd/" + std::to_string(ends[0])), "|");
    EXPECT_EQ(recorded(), expected);
  }
  close(ends[0]);

  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  std::thread writer([&] {
    std::ofstream pipe(path_);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    pipe << "debug 2 late\n";
  });
  const auto pause = [] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); };
  scanConf(path_.c_str(), record_, status_, pause);
  writer.join();
  EXPECT_EQ(recorded(), "[2][late]");
}

TEST_F(Configuration, SecondFileGoesOnTopOfTheFirstUnlessBothDefineANode) {
  scan_text("set nodes \"3\"\nset inetd \"yes\"\nnode 1 0 a 1 s t\n");
  write_file(path_, "set nodes \"4\"\nnode 2 0 b 1 s t\nsite s 1 t\n");
  addConf(path_.c_str(), record_, VarSet::instance(), status_);
  const std::string both = "[1][0][a][1][s][t][2][0][b][1][s][t][s][1][t]";
  EXPECT_EQ(recorded(), both);
  EXPECT_EQ(value("nodes", "inetd"), "4|yes");

  write_file(path_, "set nodes \"5\"\nnode 3 0 c 1 s t\nnode 1 0 c 1 s t\n");
  addConf(path_.c_str(), record_, VarSet::instance(), status_);
  EXPECT_EQ(status_.getText(), "KORV-S-00400: Node 1 of \"" + path_ +
                                   "\" is defined in another configuration file, too");
  EXPECT_EQ(recorded(), both);
  EXPECT_EQ(value("nodes"), "4");

  // Judged before it takes effect.
  write_file(path_, "set nodes \"6\"\nset alivetime \"1\"\n");
  VarSet tried = VarSet::instance();
  addConf(path_.c_str(), record_, tried, status_);
  EXPECT_FALSE(status_.failed());
  tried.constraints(status_);
  EXPECT_EQ(status_.number, MOX_VARIABLES_CONTRADICT);
  EXPECT_EQ(tried.get("nodes")->text() + value("nodes"), "64");
  tried.set("alivetime", 1250, status_);  // as large as aliveint
  tried.constraints(status_);
  EXPECT_FALSE(status_.failed());
}

TEST_F(Configuration, EveryVariableOfTheProcessCanBeAskedWhatItTakes) {
  set("nodes", "7");
  VariableDict own;
  defineVariables(own);
  EXPECT_EQ(own.find("nodes")->text() + value("nodes"), "27");

  EXPECT_EQ(VarKey::hash("historytime"), 2712245385U);
  const std::string all = printed([] { VarSet::instance().print(stdout); });
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 200);  // 201 rows, two of which are one name
  EXPECT_TRUE(all.starts_with("accessinfo_disable = 0\nacktimeout = 500\n")) << all;
  const Variable& limit = *own.find("repairlimit");
  EXPECT_EQ(std::tuple(limit.minimum(), limit.initialNumber(), limit.maximum()),
            std::tuple(0, 20, 2147483647));
  const Variable& choice = *own.find("ar_sender");
  EXPECT_EQ(std::string(choice.allowed()) + " " + choice.initialText(), "on|off off");
}

TEST_F(Configuration, FailingLookUpLeavesTheMessageThatIsBeingBuilt) {
  EXPECT_EQ(printed([] {
              logmsg.start(LEVEL_INF, "somewhere.cc", 7);
              logmsg.txt("before ");
              EXPECT_EQ(varSetInt("no\nsuch", 1), 320);
              logmsg.txt("after\n");
              logmsg.logg();
            }),
            "|WRN p:P No variable named no\\nsuch.\np:P before after\n");
}

TEST_F(Configuration, CallersInCGetTheirDefaultUntilTheVariableIsSet) {
  int number = 0;
  char* text = nullptr;
  EXPECT_EQ(varSetInt("nodes", -1), 336);
  EXPECT_EQ(varSetInt("ntrans", 300), 0);
  EXPECT_EQ(varGetInt("ntrans", &number, 9999), 0);
  EXPECT_EQ(number, 300);
  printed([&] { EXPECT_EQ(varGetInt("no_such", &number, 9999), 320); });
  printed([&] { EXPECT_EQ(varGetChar("no_such", &text, "mine"), 320); });
  EXPECT_STREQ(text, "mine");
  write_file(path_, "set logfile \"theirs\"\n");
  EXPECT_EQ(cScanConf(path_.c_str()), 0);
  EXPECT_EQ(varGetChar("logfile", &text, "mine"), 0);
  EXPECT_STREQ(text, "theirs");
  EXPECT_EQ(number, 9999);
  EXPECT_EQ(varGetInt("logfile", &number, 7), 368);
  cSetDefaultVariables();
  EXPECT_EQ(varGetChar("logfile", &text, "mine"), 0);
  EXPECT_STREQ(text, "mine");
  printed([] { EXPECT_EQ(varSetChar(nullptr, "1"), 320); });
  EXPECT_EQ(varSetChar("nodes", nullptr), 368);
  EXPECT_EQ(varSetChar("logfile", nullptr), 352);
  EXPECT_EQ(varSetChar("backup_tape", nullptr), 0);
}

}  // namespace

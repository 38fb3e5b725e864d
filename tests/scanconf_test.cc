// The reader of configuration files: every kind of line, every fault, retries, hostile files.
#include "common/scanconf.h"

#include <cerrno>
#include <string>

#include "tests/runtime_fixture.h"

namespace {

class ScanConf : public RuntimeTest {
 protected:
  // Reads the path without real pauses and returns what went to standard error.
  std::string scan(const std::string& path) {
    pauses_ = 0;
    const Output output = logged([&] {
      scanConf(path.c_str(), record_, status_, [this] {
        if (++pauses_ == file_comes_at_) write_file(path_, "debug 1 here\n");
      });
    });
    EXPECT_EQ(output.out, "");
    return output.err;
  }
  std::string scan_text(const std::string& text) {
    write_file(path_, text);
    return scan(path_);
  }
  std::string recorded() const {
    std::string all;
    const auto add = [&all](const auto&... fields) { ((all += "[" + to_text(fields) + "]"), ...); };
    for (const auto& p : record_.processes) add(p.name, p.node, p.kind, p.command);
    for (const auto& n : record_.nodes) add(n.number, n.unit, n.host, n.port, n.site, n.text);
    for (const auto& d : record_.dunits) add(d.name, d.number, d.kind, d.text);
    for (const auto& s : record_.sites) add(s.name, s.number, s.text);
    for (const auto& d : record_.debugs) add(d.mask, d.text);
    return all;
  }
  static std::string to_text(const std::string& text) { return text; }
  static std::string to_text(int number) { return std::to_string(number); }

  const std::string path_ = folder_ / "conf";
  ConfigRecord record_;
  Status status_;
  int pauses_ = 0;
  int file_comes_at_ = 0;
};

TEST_F(ScanConf, EveryKindOfLine) {
  const std::string word(99, 'w');
  const std::string host(199, 'h');
  const std::string text(1023, 't');
  const struct {
    std::string lines, recorded;
  } cases[] = {
      {"process p 1 -2 \"cmd \"quoted\" x\"\n", "[p][1][-2][cmd \"quoted\" x]"},
      {"process\tp  0x10\t010 \"c\" \r\n", "[p][16][8][c]"},
      {"node 1 2 host 3 site the text\n", "[1][2][host][3][site][the text]"},
      {"dunit d 4 5 text with blanks ", "[d][4][5][text with blanks ]"},
      {"site s 6 t", "[s][6][t]"},
      {"debug 0xff m\r\n\n  \r\n", "[255][m]"},
      {"node 1 2 " + host + " 3 " + word + " " + text + "\n",
       "[1][2][" + host + "][3][" + word + "][" + text + "]"},
      {"process " + word + " 1 2 \"" + text.substr(1) + "\"",
       "[" + word + "][1][2][" + text.substr(1) + "]"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(scan_text(c.lines), "");
    EXPECT_FALSE(status_.failed());
    EXPECT_EQ(recorded(), c.recorded);
  }
}

TEST_F(ScanConf, FaultLinesAreToldAndSkipped) {
  const auto illegal = [](int count, const std::string& keyword) {
    return "Illegal param.s (" + std::to_string(count) + ") after '" + keyword +
           "' in config. file at line 2. Line ignored.\n";
  };
  const auto open_end = [](const std::string& what) {
    return what + " line not terminated by \" in config. file at line 2. Line ignored.\n";
  };
  const std::string keyword = "Illegal keyword in config. file at line 2. Line ignored.\n";
  const std::string text(1024, 't');
  const std::string word(100, 'w');
  const std::string zero(1, '\0');
  const struct {
    std::string line, told;
  } cases[] = {
      {"SET x \"1\"", keyword},
      {std::string(5000, 'x'), keyword},
      {zero, keyword},
      {"set" + zero + " x \"1\"", illegal(0, "set")},
      {"process p 1 x \"c\"", illegal(2, "process")},
      {"process p 1 2 c\"", illegal(3, "process")},
      {"process p 1 2 \"" + text + "\"", open_end("Process")},
      {"process p 1 2 \"c\"" + zero + "\"", open_end("Process")},
      {"process " + word + " 1 2 \"c\"", illegal(1, "process")},
      {"node 1 2 h 4294967296 s t", illegal(3, "node")},
      {"node 1x 2 h 3 s t", illegal(0, "node")},
      {"node 1 2 " + word + word + " 3 s t", illegal(3, "node")},
      {"node 1 2 h 3 s " + text, illegal(6, "node")},
      {"dunit d 1 2", illegal(3, "dunit")},
      {"dunit d 1 2 cut\rhere", illegal(4, "dunit")},
      {"dunit d 1 2 " + std::string(5000, ' ') + "t", illegal(3, "dunit")},
      {"site s t 1", illegal(1, "site")},
      {"debug 1", illegal(1, "debug")},
      {" debug 1 t", illegal(0, "debug")},
      {"set nodes", illegal(1, "set")},
      {"set " + word + " \"1\"", illegal(1, "set")},
      {"set nodes 7", open_end("Set")},
      {"set nodes \"7", open_end("Set")},
      {"set nodes 7\"", open_end("Set")},
      {"set logfile \"" + text.substr(2) + "\"x", open_end("Set")},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(scan_text("debug 1 first\n" + c.line + "\ndebug 2 last\n"), c.told);
    EXPECT_EQ(recorded(), "[1][first][2][last]");
    EXPECT_FALSE(VarSet::instance().get("nodes")->isSet());
  }
  EXPECT_EQ(scan_text("node 1 1 a 1 a a\nnode 1 2 b 2 b b\n"),
            "WRN " + process_ + "SH: Node allready entered!\n");
  EXPECT_EQ(recorded(), "[1][1][a][1][a][a]");
}

TEST_F(ScanConf, SetLinesSetVariables) {
  const std::string refused =
      "KORV-S-00336: Value \"1\" of variable \"acktimeout\" is not in the range 100 to 5000";
  EXPECT_EQ(
      scan_text("set corefileprefix \"a \"b\" %s\"  \nset nodes \"3\"\r\nset backup_tape \"x\"\n"
                "set rocommunity \"\"\n"),
      "");
  EXPECT_FALSE(status_.failed());
  EXPECT_EQ(text("corefileprefix"), "a \"b\" %s");
  EXPECT_EQ(number("nodes"), 3);
  EXPECT_EQ(scan_text("set acktimeout \"1\"\nset unknown \"1\"\nset nodes \"4\"\n"),
            "WRN " + process_ + "Config. file line 1: " + refused + "\nWRN " + process_ +
                "No variable named unknown.\nWRN " + process_ +
                "Config. file line 2: KORV-S-00320: No variable with this name unknown\n");
  EXPECT_EQ(status_.getText(), refused);
  EXPECT_EQ(number("nodes"), 4);
}

TEST_F(ScanConf, OpeningIsTriedTenTimes) {
  const std::string tried = process_ + "tried to open:" + path_ + "\n";
  std::string all;
  for (int i = 0; i < 10; ++i) all += tried;
  EXPECT_EQ(scan(path_), all);
  EXPECT_EQ(pauses_, 9);
  EXPECT_EQ(status_.os_error, ENOENT);
  EXPECT_EQ(status_.getText(), "KORV-S-05500: Opening file \"" + path_ + "\" failed, OS status=2");

  file_comes_at_ = 2;
  EXPECT_EQ(scan(path_), tried + tried);
  EXPECT_FALSE(status_.failed());
  EXPECT_EQ(recorded(), "[1][here]");
}

TEST_F(ScanConf, ReadingIsTriedSixTimes) {
  const std::string failed = "WRN " + process_ +
                             "error reading:/proc, fgets() failed,Unix errno=21: "
                             "Is a directory\n";
  std::string all = failed;
  for (int i = 0; i < 5; ++i) all += process_ + "trying to re-open cfg file\n" + failed;
  EXPECT_EQ(scan("/proc"), all);
  EXPECT_EQ(pauses_, 0);
  EXPECT_STREQ(status_.getText(), "KORV-S-05502: Reading file \"/proc\" failed, OS status=21");
}

TEST_F(ScanConf, HugeFiles) {
  std::string text;
  for (int i = 0; i < 100000; ++i) {
    text += "node " + std::to_string(i) + " 0 host " + std::to_string(i) + " site text\n";
  }
  EXPECT_EQ(scan_text(text), "");
  ASSERT_EQ(record_.nodes.size(), 100000U);
  for (int i = 0; i < 100000; ++i) {
    ASSERT_EQ(record_.nodes[static_cast<std::size_t>(i)].number, i);
    ASSERT_EQ(record_.nodes[static_cast<std::size_t>(i)].port, i);
  }
  scan("/dev/zero");
  EXPECT_EQ(status_.os_error, EFBIG);
  EXPECT_STREQ(status_.getText(), "KORV-S-05502: Reading file \"/dev/zero\" failed, OS status=27");
}

}  // namespace

// Manual pages and completions against the programs: what one of them knows, the others know, and
// the examples run as printed.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "common/scanconf.h"
#include "common/variables.h"
#include "kern/mox_res_mgr/lexer.h"
#include "tests/support/ipc_namespace.h"
#include "tests/support/process.h"
#include "tests/support/sandbox.h"

namespace {

using Words = std::set<std::string>;

const std::string sources = MOX_SOURCE_DIR "/";
const std::string programs = std::filesystem::path(MOX_RES_MGR).parent_path().string() + "/";
const std::vector<std::string> pages = {"mox_res_mgr.8", "devinit.8", "mox.conf.5"};

std::string page(const std::string& name) {
  return read_file(sources + "man/" + name);
}

std::string replace_all(const std::string& text, const std::string& from, const std::string& to) {
  return std::regex_replace(text, std::regex(from), to);
}

// What the pattern's group matches, everywhere.
std::vector<std::string> matches(const std::string& text, const std::string& pattern) {
  const std::regex expression(pattern);
  std::vector<std::string> result;
  for (std::sregex_iterator at(text.begin(), text.end(), expression), end; at != end; ++at) {
    result.push_back((*at)[1]);
  }
  return result;
}

std::vector<std::string> lines(const std::string& text) {
  return matches(text, "([^\n]*)\n");
}

std::string changed_case(std::string word, int (*change)(int)) {
  for (char& c : word) c = static_cast<char>(change(c));
  return word;
}

// The arguments of a macro in the list items of a page.
Words listed(const std::string& name, const std::string& macro) {
  Words result;
  for (const std::string& item : matches(page(name), "\n\\.It ([^\n]*)")) {
    bool wanted = false;
    std::istringstream words(item);
    for (std::string word; words >> word;) {
      const bool is_macro = std::isupper(word[0]) != 0 && word.size() == 2;
      if (is_macro) wanted = word == macro;
      if (wanted && !is_macro && word != ",") result.insert(word);
    }
  }
  return result;
}

// What completion offers for a line up to the cursor, without the blanks and signs that follow.
Words offered(const std::string& line) {
  const std::string program = line.substr(0, line.find(' '));
  const std::string script = ". " + sources + "completions/" + program + R"(
    COMP_LINE=$1 COMP_POINT=${#1} words=($1 '')
    [[ $1 == *' ' ]] || unset 'words[-1]'
    _)" + program + R"( x "${1##*[[:blank:]:=]}" "${words[-2]}"
    printf '%s\n' "${COMPREPLY[@]}")";
  const RunResult run = run_program({"/bin/bash", "-c", script, "bash", line});
  EXPECT_EQ(run.err, "") << line;
  const std::vector<std::string> replies = lines(run.out);
  Words result;
  for (const std::string& reply : replies) result.insert(replace_all(reply, "[ =-]$", ""));
  return result;
}

class Documents : public IpcTest {
 protected:
  RunResult shell(const std::string& command) {
    return run_program(
        {"/bin/sh", "-c", "cd " + folder_.path() + " && PATH=" + programs + ":$PATH\n" + command});
  }
  TempFolder folder_;
};

TEST_F(Documents, OptionsAreThoseOfTheProgram) {
  for (const std::string program : {"mox_res_mgr", "devinit"}) {
    Words accepted;
    Words dashed;
    for (int letter = '0'; letter <= 'z'; ++letter) {
      if (std::isalnum(letter) == 0) continue;
      const std::string option(1, static_cast<char>(letter));
      const RunResult run = run_program({programs + program, "-" + option});
      if (run.err.find("invalid option") != std::string::npos) continue;
      accepted.insert(option);
      dashed.insert("-" + option);
    }
    EXPECT_GE(accepted.size(), 4U);
    EXPECT_EQ(listed(program + ".8", "Fl"), accepted) << program;
    EXPECT_EQ(offered(program + " -"), dashed);
  }
}

TEST_F(Documents, KeywordsAreThoseThatTheParserAccepts) {
  const auto accepts = [this](const std::string& command) {
    return shell("mox_res_mgr " + command).out.find("Usage: ") == std::string::npos;
  };
  Words known{"create", "check", "delete", "search", "node", "device"};
  for (const std::string command : {"create", "check", "delete"}) {
    Words at_node;
    Words at_device;
    for (int kind = resmgr::T_CREATE; kind <= resmgr::T_LOG; ++kind) {
      const std::string word =
          changed_case(resmgr::token_name(static_cast<resmgr::token>(kind)) + 2, std::tolower);
      if (accepts(command + " node-0: " + word + "=0")) at_node.insert(word);
      if (accepts(command + " node-0: device-0." + word + "=1")) at_device.insert(word);
    }
    known.insert(at_node.begin(), at_node.end());
    known.insert(at_device.begin(), at_device.end());
    if (!at_device.empty()) at_node.insert("device");
    EXPECT_EQ(offered("mox_res_mgr " + command + " node-0: "), at_node);
    const Words behind_device = offered("mox_res_mgr " + command + " node-0: device-0.");
    Words expected;
    for (const std::string& word : at_device) expected.insert("device-0." + word);
    EXPECT_EQ(behind_device, expected.empty() ? Words{""} : expected);
  }
  EXPECT_EQ(listed("mox_res_mgr.8", "Cm"), known);
  const std::string usage = shell("mox_res_mgr -h").out;
  for (const std::string& word : known) {
    const std::string shown = word == "search" ? "--search" : changed_case(word, std::toupper);
    EXPECT_NE(usage.find(shown), std::string::npos) << word;
  }
}

TEST_F(Documents, CompletionFollowsTheCommand) {
  const struct {
    const char* line;
    Words answers;
  } cases[] = {
      {"mox_res_mgr ", {"create", "check", "delete"}},
      {"mox_res_mgr -v c", {"create", "check"}},
      {"mox_res_mgr check ", {"--search", "node"}},
      {"mox_res_mgr check --search ", {"node"}},
      {"mox_res_mgr delete ", {"node"}},
      {"mox_res_mgr create node-1:d", {"databuf"}},
      {"mox_res_mgr check node-1: ipcbase=5,d", {"5,databuf", "5,device"}},
      {"mox_res_mgr create node-1: ipcbase=5", {""}},
      {"mox_res_mgr create node-1: ipcbase=5 ", {"node"}},
      {"mox_res_mgr delete node-1: device-0.path=/etc/passw", {"/etc/passwd"}},
      {"mox_res_mgr -f /etc/passw", {"/etc/passwd"}},
      {"mox_res_mgr CREATE ", {""}},
      {"devinit -b 5 -f /etc/passw", {"/etc/passwd"}},
  };
  for (const auto& [line, answers] : cases) {
    Words found = offered(line);
    found.erase("/etc/passwd-");
    EXPECT_EQ(found, answers) << line;
  }
}

// The fixed beginnings of all texts that the sources print, and the items of the page.
void expect_listed(const std::string& name, const Words& texts) {
  std::vector<std::string> items;
  for (const std::string& item : matches(page(name), "\n\\.It Sy \"([^\n]*)\"(?=\n)")) {
    items.push_back(replace_all(item, "\"\"", "\""));
  }
  for (const std::string& text : texts) {
    const std::string beginning = replace_all(text.substr(0, text.find('%')), "\\\\n", "");
    EXPECT_TRUE(std::any_of(items.begin(), items.end(),
                            [&](const std::string& item) { return item.starts_with(beginning); }))
        << name << " lacks: " << beginning;
  }
}

Words error_numbers_with_texts(const std::string& source) {
  Words result;
  for (const std::string& name : matches(source, "\\b(MOX_[A-Z_]+)\\b")) {
    for (const std::string& number :
         matches(read_file(sources + "errutils/moxstatus.h"), "\\b" + name + " = ([1-9]\\d*)")) {
      result.insert(number + " " + Status::getText(static_cast<Moxstatus_e>(std::stoi(number))));
    }
  }
  EXPECT_FALSE(result.empty());
  return result;
}

TEST_F(Documents, EveryDiagnosticIsExplained) {
  const auto source = [this](const std::string& files) {
    return shell("cd " + sources + " && cat " + files).out;
  };
  const auto expect_all = [](const std::string& name, const std::string& code,
                             const std::string& pattern) {
    const std::vector<std::string> texts = matches(code, pattern);
    EXPECT_GE(texts.size(), 5U);
    expect_listed(name, Words(texts.begin(), texts.end()));
  };
  const std::string manager = source("kern/mox_res_mgr/*.cc common/sharedmem.cc utl/semops.cc");
  expect_all("mox_res_mgr.8", manager, "printf\\(\"(Error: [^\"]*)\"");
  expect_all("mox_res_mgr.8", manager, "log_line\\(LEVEL_WRN,\\s*\"([^\"]*)\"");
  expect_listed("mox_res_mgr.8", error_numbers_with_texts(manager));
  expect_all("devinit.8", source("kern/devinit/*.cc kern/device*.cc"),
             "devinit_(?:fail|report)\\(\"([^\"]*)\"");
  const std::string reader = source("common/scanconf.cc common/variable*.cc common/logconfig.cc");
  expect_listed("mox.conf.5", error_numbers_with_texts(reader));
}

// Commands stand behind "$ ", their next lines behind "> ", and then what they print.
TEST_F(Documents, ExamplesRunAsPrinted) {
  for (const std::string name : {"mox_res_mgr.8", "devinit.8"}) {
    const std::string source = page(name);
    const std::size_t start = source.find(".Sh EXAMPLES");
    const std::string section = source.substr(start, source.find("\n.Sh ", start) - start);
    std::vector<std::pair<std::string, std::string>> examples;
    for (const std::string& block : matches(section, "\\.Bd -literal\n([^]*?)\\.Ed\n")) {
      for (const std::string& line : lines(replace_all(block, "\\\\e", "\\"))) {
        if (line.starts_with("$ ")) {
          examples.emplace_back(line.substr(2), "");
        } else if (line.starts_with("> ")) {
          examples.back().first += "\n" + line.substr(2);
        } else {
          examples.back().second += line + "\n";
        }
      }
    }
    ASSERT_GE(examples.size(), 4U);
    for (const auto& [command, output] : examples) EXPECT_EQ(shell(command).out, output) << command;
  }
}

void expect_value(const std::string& name, const std::string& value, bool allowed) {
  Status status;
  VarSet::instance().set(name.c_str(), value.c_str(), status);
  EXPECT_EQ(!status.failed(), allowed) << name << "=" << value;
}

TEST_F(Documents, VariablesAreThoseOfTheTable) {
  const std::string text = page("mox.conf.5");
  VarSet& set = VarSet::instance();
  Words described;
  std::smatch row;
  for (const std::string& line : lines(text)) {
    if (std::regex_match(line, row, std::regex("\\.It Va (\\w+) Ta (\\d+) Ta (\\d+) Ta (\\d+)"))) {
      ASSERT_NE(set.get(row.str(1).c_str()), nullptr) << line;
      EXPECT_EQ(set.get(row.str(1).c_str())->text(), row.str(3)) << line;
      expect_value(row[1], row[2], true);
      expect_value(row[1], std::to_string(std::stol(row[2]) - 1), false);
      expect_value(row[1], row[4], true);
      expect_value(row[1], std::to_string(std::stol(row[4]) + 1), false);
    } else if (std::regex_match(line, row, std::regex("\\.It Va (\\w+) Ta (\\S+) Ta (.*)"))) {
      const auto plain = [](const std::string& value) { return value == "(empty)" ? "" : value; };
      ASSERT_NE(set.get(row.str(1).c_str()), nullptr) << line;
      EXPECT_EQ(set.get(row.str(1).c_str())->text(), plain(row[2])) << line;
      const bool any = row[3] == "any text";
      for (const std::string& value : matches(row[3], "([^ ,]+)")) {
        expect_value(row[1], plain(value), true);
      }
      expect_value(row[1], "no-such-value", any);
    } else if (std::regex_match(line, row, std::regex("\\.Va (\\w+) [,.]")) &&
               set.get(row.str(1).c_str())->kind() == Variable::OBSOLETE) {
      // Listed among the obsolete ones, below.
    } else {
      continue;
    }
    EXPECT_TRUE(described.insert(row[1]).second) << line;
  }
  char* printed = nullptr;
  std::size_t size = 0;
  std::FILE* stream = open_memstream(&printed, &size);
  set.print(stream);
  std::fclose(stream);
  const std::vector<std::string> names = matches(printed, R"((\w+) = [^\n]*\n)");
  std::free(printed);
  EXPECT_EQ(described, Words(names.begin(), names.end()));
  set.setDefaults();
}

TEST_F(Documents, TheExampleOfAConfigurationFileIsRead) {
  const std::vector<std::string> blocks =
      matches(page("mox.conf.5"), "\\.Bd -literal\n([^]*?)\\.Ed\n");
  ASSERT_EQ(blocks.size(), 1U);
  write_file(folder_ / "mox.conf", blocks[0]);
  ConfigRecord record;
  Status status;
  testing::internal::CaptureStderr();
  scanConf((folder_ / "mox.conf").c_str(), record, status);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_FALSE(status.failed()) << status.getText();
  EXPECT_EQ(record.nodes.size() + record.sites.size() + record.processes.size(), 5U);
  EXPECT_EQ(VarSet::instance().get("acktimeout")->number(), 1000);
  VarSet::instance().setDefaults();
}

TEST_F(Documents, PagesAreFreeOfLintAndFitTheTerminal) {
  if (shell("command -v mandoc").status != 0) GTEST_SKIP() << "skipped: mandoc is not installed";
  for (const std::string& name : pages) {
    const std::string path = sources + "man/" + name;
    // Pages of other packages may be missing here.
    EXPECT_EQ(shell("mandoc -T lint " + path + " | grep -v 'referenced manual not found'").out, "");
    const std::string text = shell("mandoc -T ascii -O width=78 " + path).out;
    for (const std::string& line : lines(replace_all(text, ".\b", ""))) {
      EXPECT_LE(line.size(), 80U) << line;
    }
  }
}

}  // namespace

#include "kern/mox_node/options.h"

#include <getopt.h>

#include <climits>
#include <cstring>
#include <iterator>

#include "common/base/number.h"
#include "common/base/printable.h"

namespace moxnode {

namespace {

constexpr unsigned bit(Verb verb) {
  return 1U << static_cast<unsigned>(verb);
}

constexpr unsigned every_verb = ~0U;

struct OptionRow {
  const char* name;
  char letter;  // what getopt_long returns; short options have this letter
  int argument;
  unsigned verbs;
  bool is_short;
};

constexpr OptionRow rows[] = {
    {"file", 'f', required_argument, every_verb, true},
    {"output", 'o', required_argument, every_verb, true},
    {"output-file", 'O', required_argument, every_verb, false},
    {"user", 'u', required_argument, every_verb, true},
    {"verbose", 'v', no_argument, every_verb, true},
    {"help", 'h', no_argument, every_verb, true},
    {"version", 'V', no_argument, every_verb, true},
    {"all", 'a', no_argument, bit(Verb::STATUS), false},
    {"repair", 'r', no_argument, bit(Verb::PLAN) | bit(Verb::UP), false},
    {"wait", 'w', required_argument, bit(Verb::DOWN), false},
    {"force", 'F', no_argument, bit(Verb::DOWN), false},
};

constexpr const char* verb_names[] = {nullptr, "status", "plan", "up", "down"};
constexpr const char* format_names[] = {"text", "json", "prometheus"};

template <class Enum, std::size_t N>
bool named(const char* const (&names)[N], const char* word, Enum& value) {
  for (std::size_t i = 0; i < N; ++i) {
    if (names[i] == nullptr || std::strcmp(names[i], word) != 0) continue;
    value = static_cast<Enum>(i);
    return true;
  }
  return false;
}

class Scan {
 public:
  Options options;

  void run(int argc, char** argv) {
    const bool has_first = argc > 1;
    const bool is_verb = has_first && named(verb_names, argv[1], options.verb);
    const bool is_option = has_first && argv[1][0] == '-';
    if (has_first && !is_verb && !is_option) {
      wrong(std::string("no verb: ") + argv[1]);
    }
    // A word in the place of the verb is stepped over, so that the options behind it are seen.
    const int skipped = has_first && !is_option ? 1 : 0;
    scan(argc - skipped, argv + skipped);
    if (!options.help && !options.version) judge();
  }

 private:
  void wrong(const std::string& what) {
    if (options.error.empty()) options.error = printable(what);
  }

  void scan(int argc, char** argv) {
    option longs[std::size(rows) + 1] = {};
    std::string letters = "+:";
    for (std::size_t i = 0; i < std::size(rows); ++i) {
      longs[i] = {rows[i].name, rows[i].argument, nullptr, rows[i].letter};
      if (!rows[i].is_short) continue;
      letters += rows[i].letter;
      if (rows[i].argument == required_argument) letters += ':';
    }
    optind = 0;
    opterr = 0;
    for (;;) {
      const int at = optind == 0 ? 1 : optind;
      const int letter = getopt_long(argc, argv, letters.c_str(), longs, nullptr);
      if (letter == -1) break;
      if (letter == '?' || letter == ':') {
        wrong(std::string(letter == ':' ? "no argument for option " : "unknown option ") +
              argv[at]);
      } else {
        take(letter);
      }
    }
    options.words.assign(argv + optind, argv + argc);
  }

  void take(int letter) {
    for (const OptionRow& row : rows) {
      if (row.letter != letter) continue;
      const std::string name = std::string("--") + row.name;
      const auto mask = 1U << static_cast<unsigned>(&row - rows);
      if (options.verb != Verb::NONE && (row.verbs & bit(options.verb)) == 0) {
        wrong(name + " is no option of " + name_of(options.verb));
      }
      if (row.argument == required_argument) {
        if ((seen_ & mask) != 0) wrong(name + " is given twice");
        if (*optarg == '\0') wrong(name + " has an empty argument");
      }
      seen_ |= mask;
    }
    set(letter);
  }

  void set(int letter) {
    switch (letter) {
      case 'f':
        options.file = optarg;
        break;
      case 'o':
        if (!named(format_names, optarg, options.format)) {
          wrong(std::string("unknown output format ") + optarg);
        }
        break;
      case 'O':
        options.output_file = optarg;
        break;
      case 'u':
        options.user = optarg;
        break;
      case 'w':
        set_wait(optarg);
        break;
      default:
        *flag(letter) = true;
    }
  }

  bool* flag(int letter) {
    switch (letter) {
      case 'v':
        return &options.verbose;
      case 'h':
        return &options.help;
      case 'V':
        return &options.version;
      case 'a':
        return &options.all;
      case 'r':
        return &options.repair;
      default:
        return &options.force;
    }
  }

  void set_wait(const char* text) {
    const auto number = readNumber(text, 10);
    const bool digits = std::strspn(text, "0123456789") == std::strlen(text);
    if (!digits || !number || !number->isWithin(0, INT_MAX)) {
      wrong(std::string("--wait takes whole seconds, not ") + text);
    } else {
      options.wait = static_cast<int>(number->value);
    }
  }

  void judge() {
    const bool words = !options.words.empty();
    const int sources = (words ? 1 : 0) + (options.file.empty() ? 0 : 1) + (options.all ? 1 : 0);
    if (options.verb == Verb::NONE) {
      wrong("no verb: status, plan, up or down comes first");
    } else if (options.format == Format::PROMETHEUS && options.verb != Verb::STATUS) {
      wrong("prometheus output is of status alone");
    } else if (sources == 0) {
      wrong("no description: -f FILE, or its words");
    } else if (sources > 1) {
      wrong("more than one of -f FILE, words and --all");
    }
  }

  unsigned seen_ = 0;
};

}  // namespace

const char* name_of(Verb verb) {
  return verb_names[static_cast<unsigned>(verb)];
}

Options scan_options(int argc, char** argv) {
  Scan scan;
  scan.run(argc, argv);
  return scan.options;
}

const char* const usage_text =
    R"(Usage: mox_node status [options] (-f FILE | WORDS... | --all)
       mox_node plan [--repair] [options] (-f FILE | WORDS...)
       mox_node up [--repair] [options] (-f FILE | WORDS...)
       mox_node down [--wait SECONDS] [--force] [options] (-f FILE | WORDS...)

Asks what stands of database nodes on this host, and makes it so, repeatably. The description is
the text of a CREATE or CHECK command of mox_res_mgr.

  status   what stands
  plan     what up would do, and whether it fits
  up       makes what is missing, all of it or nothing
  down     removes what is described

  -f, --file FILE          the description; - is standard input
  -o, --output FORMAT      text, json or (status) prometheus
      --output-file PATH   instead of standard output: written beside it and renamed
  -u, --user USER          objects belong to that user (name or number)
  -v, --verbose            also what differs from run to run
      --all                status of every node that is found, without a description
      --repair             plan, up: the missing objects of a partial node as well
      --wait SECONDS       down: how long to wait until nobody is attached
      --force              down: also what is attached
  -h, --help
  -V, --version

Exit status: 0 present (down: absent), 1 trouble, 2 absent, 3 partial, 4 conflict, 5 in use,
6 does not fit the kernel's limits. See mox_node(8).
)";

}  // namespace moxnode

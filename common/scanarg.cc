#include "common/scanarg.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>

#include "common/base/number.h"
#include "common/base/printable.h"
#include "common/debugmask.h"
#include "common/logger.h"
#include "common/variables.h"

namespace {

// `a` and `y` are accepted by getopt here and are no options of any program.
constexpr const char* all_options = "hn:p:c:b:d:N:P:s:l:m:D:S:k:va:t:y:F:f:I:";

// "name=value" as -D gives it, name and value cut at what their places hold.
class Definition {
 public:
  explicit Definition(const char* text) { std::sscanf(text, "%99[^=\n]=%999[^\n]", name_, value_); }
  const char* name() const { return name_; }
  const char* value() const { return value_; }

 private:
  char name_[100] = "";
  char value_[1000] = "";
};

// Each reader takes the argument of an option, or the value of an environment variable, into its
// fields; null, when there is none, is no number. False: the fields keep their values.
using Reader = bool (*)(ScanArg& scan, char* argument);

template <auto... fields>
bool flag(ScanArg& scan, char* /*argument*/) {
  ((scan.*fields = 1), ...);
  return true;
}

template <auto field>
bool text(ScanArg& scan, char* argument) {
  scan.*field = argument;
  return true;
}

// The number at the start of the text, in the given base (0: decimal, octal, hexadecimal), when the
// bits of the field can hold it, signed or unsigned.
template <typename Field>
bool convert(const char* argument, int base, Field& field) {
  constexpr std::int64_t least = std::numeric_limits<std::make_signed_t<Field>>::min();
  constexpr std::int64_t most = std::numeric_limits<std::make_unsigned_t<Field>>::max();
  const auto number = readNumber(argument, base);
  if (!number || !number->isWithin(least, most)) return false;
  field = static_cast<Field>(number->value);
  return true;
}

template <auto... fields>
bool number(ScanArg& scan, char* argument) {
  return (convert(argument, 0, scan.*fields) && ...);
}

template <int base>
bool mask(ScanArg& scan, char* argument) {
  if (!convert(argument, base, scan.debugMask)) return false;
  scan.debugMaskFlag = 1;
  return true;
}

// The logger's number has more bits: all ones, which stand for none, are its -1.
bool node(ScanArg& scan, char* argument) {
  if (!convert(argument, 0, scan.nodeNo)) return false;
  logmsgNodeno = scan.nodeNo == 0xFFFF ? -1 : scan.nodeNo;
  return true;
}

// The definitions take effect in setVariables; these two have fields of their own as well.
bool definition(ScanArg& scan, char* argument) {
  if (argument == nullptr) return false;
  scan.definitions[scan.definitionCount++] = argument;
  const Definition split(argument);
  const std::string_view name = split.name();
  if (name == "nbuffs" && convert(split.value(), 0, scan.buffers)) {
    if (scan.buffers == 0) --scan.definitionCount;
  } else if (name == "sqlsub_portno") {
    convert(split.value(), 0, scan.sqlSubPort);
  }
  return true;
}

// One row an option. Whether it has an argument is for the option string of the program to say.
struct StandardOption {
  char letter;
  const char* usage;
  Reader take;
};

constexpr StandardOption standard_options[] = {
    {'C', "(config   f) <AR config file>", text<&ScanArg::extraConfigFile>},
    {'D', "(Define S=s) <var>=<value>", definition},
    {'F', "(Force     )", flag<&ScanArg::forceFlag>},
    {'I', "(Include  d) <schema dir>    KORV_SCHEMADIR", text<&ScanArg::schemaDir>},
    {'N', "(Node     n) <tcon node>", number<&ScanArg::tconNode>},
    {'P', "(Port     n) <tcon port>", number<&ScanArg::tconPort>},
    {'S', "(Server s:n) <host>:<port>   MOX_SERVER", text<&ScanArg::server>},
    {'V', "(Version   )", flag<&ScanArg::fullVersionFlag>},
    {'b', "(buffers  n) <kind/size>", number<&ScanArg::buffers>},
    {'c', "(config   f) <config file>   MOX_CONFIG", text<&ScanArg::configFile>},
    {'d', "(debug    n) <hex mask>      MOX_DEBUGMASK", mask<16>},
    {'f', "(input    f) <input file>", text<&ScanArg::inputFile>},
    {'h', "(help      )", flag<&ScanArg::helpFlag>},
    {'k', "(key      n) <key number>    MOX_KEY/MOX_SYSKEY",
     number<&ScanArg::key, &ScanArg::sysKey>},
    {'l', "(log      f) <device name>", text<&ScanArg::logDevice>},
    {'m', "(master   f) <device name>", text<&ScanArg::masterDevice>},
    {'n', "(node     n) <node number>   MOX_NODENO", node},
    {'p', "(port     n) <port number>   MOX_PORTNO", number<&ScanArg::portNo>},
    {'s', "(startlev n) <0..6,42,91,92> MOX_STARTLEVEL", number<&ScanArg::startLevel>},
    {'t', "(Timeout  n) <seconds>", number<&ScanArg::timeOut>},
    {'v', "(version   )", flag<&ScanArg::versionFlag, &ScanArg::shortVersionFlag>},
};

struct EnvironmentVariable {
  const char* name;
  Reader take;
};

// In the order in which they are read.
constexpr EnvironmentVariable environment_variables[] = {
    {"MOX_PORTNO", number<&ScanArg::portNo>},
    {"MOX_NODENO", node},
    {"MOX_CONFIG", text<&ScanArg::configFile>},
    {"MOX_EXTRA_CONFIG", text<&ScanArg::extraConfigFile>},
    {"MOX_STARTLEVEL", number<&ScanArg::startLevel>},
    {"MOX_DEBUGMASK", mask<0>},
    {"MOX_SERVER", text<&ScanArg::server>},
    {"MOX_KEY", number<&ScanArg::key>},
    {"MOX_SYSKEY", number<&ScanArg::sysKey>},
    {"KORV_SCHEMADIR", text<&ScanArg::schemaDir>},
};

const StandardOption* findOption(int letter) {
  for (const StandardOption& option : standard_options) {
    if (option.letter == letter) return &option;
  }
  return nullptr;
}

// The table has "config" as an integer. The name of a file, which is none, finds no place there and
// stays with the scanner, whose program reads the file; that must not stop the others.
void setConfigFile(const char* name, Status& status) {
  VarSet::instance().set("config", name, status);
  if (status.failed()) initStatus_s(&status);
}

}  // namespace

int ScanArg::parse(int argc, char** argv) {
  return parse(argc, argv, all_options);
}

int ScanArg::parse(int argc, char** argv, const char* options) {
  optionString = options;
  definitionCount = 0;
  operandCount = 0;
  refusedOperands = 0;
  readEnvironment();

  // The plus sign makes GNU getopt stop at the first operand, optind 0 makes it forget a scan
  // before this one.
  const std::string in_order = std::string("+").append(options);
  int errors = 0;
  optind = 0;
  for (int letter = 0; (letter = getopt(argc, argv, in_order.c_str())) != -1;) {
    if (!takeOption(letter, argv)) ++errors;
  }
  return errors + takeOperands(argc - optind, argv + optind);
}

void ScanArg::readEnvironment() {
  for (const EnvironmentVariable& variable : environment_variables) {
    char* const value = std::getenv(variable.name);
    if (value != nullptr && *value != '\0') variable.take(*this, value);
  }
}

// An option that the program declared without an argument has none to show.
bool ScanArg::takeOption(int letter, char** argv) {
  const StandardOption* option = findOption(letter);
  if (option == nullptr) {
    std::printf("opt: %c\n", letter);
    return false;
  }
  if (letter == 'D' && definitionCount == max_entries) {
    std::fprintf(stderr, "More than %d definitions, refused: -D %s\n", max_entries,
                 printable(optarg).c_str());
    return false;
  }
  if (option->take(*this, optarg)) return true;
  const std::string name = optarg != nullptr ? argv[optind - 2] : std::string("-") + option->letter;
  const std::string value = optarg != nullptr ? argv[optind - 1] : "";
  std::fprintf(stderr, "%s: Error in argument %s %s\n", printable(argv[0]).c_str(),
               printable(name).c_str(), printable(value).c_str());
  return false;
}

int ScanArg::takeOperands(int count, char** words) {
  for (int i = 0; i < count && i < max_entries; ++i) operands[operandCount++] = words[i];
  refusedOperands = std::max(count - max_entries, 0);
  if (refusedOperands > 0) {
    std::fprintf(stderr, "More than %d operands, refused: the last %d\n", max_entries,
                 refusedOperands);
  }
  return refusedOperands;
}

void ScanArg::setVariables(unsigned char level, Status& status) {
  initStatus_s(&status);
  if (debugMaskFlag != 0) setInitialDebugMask(debugMask);
  renewDebugMask(level);

  VarSet& variables = VarSet::instance();
  for (int i = 0; i < definitionCount; ++i) {
    const Definition definition(definitions[i]);
    variables.set(definition.name(), definition.value(), status);
    if (status.failed()) return pushTraceStatus(&status);
  }
  if (buffers > 0) variables.set("nbuffs", buffers, status);
  if (status.failed()) return pushTraceStatus(&status);
  if (configFile != nullptr) setConfigFile(configFile, status);
  if (status.failed()) return pushTraceStatus(&status);
  if (startLevel >= 0) variables.set("startlevel", startLevel, status);
  if (status.failed()) return pushTraceStatus(&status);

  variables.depend_check();
  logmsg.newConfig();
}

void ScanArg::usage() {
  if (optionString != nullptr) return usage(optionString);
  std::string letters = all_options;
  std::erase(letters, ':');
  usage(letters.c_str());
}

void ScanArg::usage(const char* options) {
  std::printf("\nOption  (Mnemonic  ) Explanation     Environment variable\n");
  if (options == nullptr) return;
  for (const char* letter = options; *letter != '\0'; ++letter) {
    if (*letter == ':') continue;
    const StandardOption* option = findOption(*letter);
    std::printf("    -%c%c %s\n", *letter, letter[1] == ':' ? ':' : ' ',
                option != nullptr ? option->usage : "?? unknown option ??");
  }
}

void ScanArg::print() const {
  const auto word = [](const char* before, const char* value) {
    if (value != nullptr) std::printf("%s%s", before, printable(value).c_str());
  };
  std::printf("ScanArg::print -n %d -p %d", nodeNo, portNo);
  word(" -c ", configFile != nullptr ? configFile : "(undefined)");
  std::printf(" -b %d -d 0x%x -N %d -P %d -s %d", buffers, debugMask, tconNode, tconPort,
              startLevel);
  word(" -l ", logDevice);
  word(" -m ", masterDevice);
  for (int i = 0; i < definitionCount; ++i) word(" -D ", definitions[i]);
  for (int i = 0; i < operandCount; ++i) word(" ", operands[i]);
  std::printf("\n");
}

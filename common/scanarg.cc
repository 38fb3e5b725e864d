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
#include "common/debugmask.h"
#include "common/logger.h"
#include "common/variables.h"

namespace {

constexpr const char* all_options = "hn:p:c:b:d:N:P:s:l:m:D:S:k:va:t:y:F:f:I:";
constexpr const char* all_letters = "hnpcbdNPslmDSkvatyFfI";

struct UsageLine {
  char letter;
  const char* text;
};

constexpr UsageLine usage_lines[] = {
    {'C', "(config   f) <AR config file>"},
    {'D', "(Define S=s) <var>=<value>"},
    {'F', "(Force     )"},
    {'I', "(Include  d) <schema dir>    KORV_SCHEMADIR"},
    {'N', "(Node     n) <tcon node>"},
    {'P', "(Port     n) <tcon port>"},
    {'S', "(Server s:n) <host>:<port>   MOX_SERVER"},
    {'V', "(Version   )"},
    {'b', "(buffers  n) <kind/size>"},
    {'c', "(config   f) <config file>   MOX_CONFIG"},
    {'d', "(debug    n) <hex mask>      MOX_DEBUGMASK"},
    {'f', "(input    f) <input file>"},
    {'h', "(help      )"},
    {'k', "(key      n) <key number>    MOX_KEY/MOX_SYSKEY"},
    {'l', "(log      f) <device name>"},
    {'m', "(master   f) <device name>"},
    {'n', "(node     n) <node number>   MOX_NODENO"},
    {'p', "(port     n) <port number>   MOX_PORTNO"},
    {'s', "(startlev n) <0..6,42,91,92> MOX_STARTLEVEL"},
    {'t', "(Timeout  n) <seconds>"},
    {'v', "(version   )"},
};

const char* usage_text(char letter) {
  for (const UsageLine& line : usage_lines) {
    if (line.letter == letter) return line.text;
  }
  return "?? unknown option ??";
}

// The number at the start of text, in the given base (0: decimal, octal, hexadecimal), when the
// bits of the field can hold it, signed or unsigned.
template <typename Field>
bool read_number(const char* text, int base, Field& field) {
  constexpr std::int64_t least = std::numeric_limits<std::make_signed_t<Field>>::min();
  constexpr std::int64_t most = std::numeric_limits<std::make_unsigned_t<Field>>::max();
  const auto number = readNumber(text, base);
  if (!number || !number->isWithin(least, most)) return false;
  field = static_cast<Field>(number->value);
  return true;
}

bool read_node(const char* text, std::uint16_t& node) {
  if (!read_number(text, 0, node)) return false;
  logmsgNodeno = static_cast<std::int16_t>(node);
  return true;
}

bool read_mask(const char* text, int base, std::uint32_t& mask, std::int16_t& given) {
  if (!read_number(text, base, mask)) return false;
  given = 1;
  return true;
}

// The table has "config" as an integer. The name of a file, which is none, finds no place there and
// stays with the scanner, whose program reads the file; that must not stop the others.
void set_config_file(const char* name, Status& status) {
  VarSet::instance().set("config", name, status);
  if (status.number == MOX_VALUE_NOT_A_NUMBER) initStatus_s(&status);
}

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
    const Outcome outcome = takeOption(letter, optarg);
    if (outcome == Outcome::TAKEN) continue;
    ++errors;
    if (outcome == Outcome::BAD_ARGUMENT) {
      std::fprintf(stderr, "%s: Error in argument %s %s\n", argv[0], argv[optind - 2],
                   argv[optind - 1]);
    }
  }
  return errors + takeOperands(argc - optind, argv + optind);
}

void ScanArg::readEnvironment() {
  const auto text = [](const char* name, const char*& field) {
    if (const char* value = std::getenv(name)) field = value;
  };
  read_number(std::getenv("MOX_PORTNO"), 0, portNo);
  read_node(std::getenv("MOX_NODENO"), nodeNo);
  text("MOX_CONFIG", configFile);
  text("MOX_EXTRA_CONFIG", extraConfigFile);
  read_number(std::getenv("MOX_STARTLEVEL"), 0, startLevel);
  read_mask(std::getenv("MOX_DEBUGMASK"), 0, debugMask, debugMaskFlag);
  text("MOX_SERVER", server);
  read_number(std::getenv("MOX_KEY"), 0, key);
  read_number(std::getenv("MOX_SYSKEY"), 0, sysKey);
  text("KORV_SCHEMADIR", schemaDir);
}

ScanArg::Outcome ScanArg::takeOption(int letter, char* argument) {
  switch (letter) {
    case 'C':
      extraConfigFile = argument;
      break;
    case 'D':
      return define(argument);
    case 'F':
      forceFlag = 1;
      break;
    case 'I':
      schemaDir = argument;
      break;
    case 'S':
      server = argument;
      break;
    case 'V':
      fullVersionFlag = 1;
      break;
    case 'c':
      configFile = argument;
      break;
    case 'f':
      inputFile = argument;
      break;
    case 'h':
      helpFlag = 1;
      break;
    case 'l':
      logDevice = argument;
      break;
    case 'm':
      masterDevice = argument;
      break;
    case 'v':
      versionFlag = 1;
      shortVersionFlag = 1;
      break;
    default:
      return takeNumber(letter, argument);
  }
  return Outcome::TAKEN;
}

ScanArg::Outcome ScanArg::takeNumber(int letter, const char* argument) {
  const auto outcome = [](bool read) { return read ? Outcome::TAKEN : Outcome::BAD_ARGUMENT; };
  switch (letter) {
    case 'N':
      return outcome(read_number(argument, 0, tconNode));
    case 'P':
      return outcome(read_number(argument, 0, tconPort));
    case 'b':
      return outcome(read_number(argument, 0, buffers));
    case 'd':
      return outcome(read_mask(argument, 16, debugMask, debugMaskFlag));
    case 'k':
      return outcome(read_number(argument, 0, key) && read_number(argument, 0, sysKey));
    case 'n':
      return outcome(read_node(argument, nodeNo));
    case 'p':
      return outcome(read_number(argument, 0, portNo));
    case 's':
      return outcome(read_number(argument, 0, startLevel));
    case 't':
      return outcome(read_number(argument, 0, timeOut));
    default:
      std::printf("opt: %c\n", letter);
      return Outcome::REFUSED;
  }
}

// The definitions take effect in setVariables; these two have fields of their own as well.
ScanArg::Outcome ScanArg::define(char* text) {
  if (text == nullptr) return Outcome::BAD_ARGUMENT;
  if (definitionCount == max_entries) {
    std::fprintf(stderr, "More than %d definitions, refused: -D %s\n", max_entries, text);
    return Outcome::REFUSED;
  }
  definitions[definitionCount++] = text;

  const Definition definition(text);
  const std::string_view name = definition.name();
  if (name == "nbuffs" && read_number(definition.value(), 0, buffers)) {
    if (buffers == 0) --definitionCount;
  } else if (name == "sqlsub_portno") {
    read_number(definition.value(), 0, sqlSubPort);
  }
  return Outcome::TAKEN;
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
  if (configFile != nullptr) set_config_file(configFile, status);
  if (status.failed()) return pushTraceStatus(&status);
  if (startLevel >= 0) variables.set("startlevel", startLevel, status);
  if (status.failed()) return pushTraceStatus(&status);

  variables.depend_check();
  logmsg.newConfig();
}

void ScanArg::usage() {
  usage(optionString != nullptr ? optionString : all_letters);
}

void ScanArg::usage(const char* options) {
  std::printf("\nOption  (Mnemonic  ) Explanation     Environment variable\n");
  if (options == nullptr) return;
  for (const char* letter = options; *letter != '\0'; ++letter) {
    if (*letter == ':') continue;
    std::printf("    -%c%c %s\n", *letter, letter[1] == ':' ? ':' : ' ', usage_text(*letter));
  }
}

void ScanArg::print() const {
  std::printf("ScanArg::print -n %d -p %d -c %s -b %d -d 0x%x -N %d -P %d -s %d", nodeNo, portNo,
              configFile != nullptr ? configFile : "(undefined)", buffers, debugMask, tconNode,
              tconPort, startLevel);
  if (logDevice != nullptr) std::printf(" -l %s", logDevice);
  if (masterDevice != nullptr) std::printf(" -m %s", masterDevice);
  for (int i = 0; i < definitionCount; ++i) std::printf(" -D %s", definitions[i]);
  for (int i = 0; i < operandCount; ++i) std::printf(" %s", operands[i]);
  std::printf("\n");
}

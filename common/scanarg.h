// The command-line scanner of all programs of the system. A program hands parse its option string;
// defaults come from environment variables, options override them, and the words behind the options
// are the operands. Scanning stops at the first word that is no option. Strings are not copied:
// they point into the environment and the argument vector, which have to outlive the object.
#pragma once

#include <cstdint>

#include "errutils/statuss.h"

class ScanArg {
 public:
  static constexpr int max_entries = 200;  // of the definitions, and of the operands

  // First in the table of virtual functions. Print the table of the letters on standard output;
  // without letters that of the last parse.
  virtual void usage();
  virtual void usage(const char* options);

  virtual ~ScanArg() = default;

  // Returns the number of errors, each of which was reported. The variant without options accepts
  // all standard options. A scan begins its lists anew; a field that neither environment nor option
  // gives keeps its value. A number that the bits of its field cannot hold does not parse.
  int parse(int argc, char** argv);
  int parse(int argc, char** argv, const char* options);

  // Carries debug mask, definitions, buffers, config file and start level into the variables, then
  // checks what depends on one another and lets the logger read its configuration again. Stops at
  // the first variable that fails, with the status of VarSet::set.
  void setVariables(unsigned char level, Status& status);

  // Prints the state, in one line on standard output.
  void print() const;

  const char* optionString = nullptr;  // as given to parse
  const char* server = nullptr;        // host:port
  std::int32_t key = -1;
  std::int32_t sysKey = -1;
  std::uint16_t nodeNo = 0xFFFF;  // all ones: not given
  std::uint16_t portNo = 0xFFFF;  // all ones: not given
  const char* configFile = nullptr;
  const char* extraConfigFile = nullptr;
  std::int32_t buffers = 0;
  std::int32_t sqlSubPort = 0;
  std::int16_t debugMaskFlag = 0;  // not 0: debugMask was given
  std::uint32_t debugMask = 0;
  std::int16_t tconNode = -1;
  std::int16_t tconPort = -1;  // the 16 bits of the port
  std::int32_t startLevel = -1;
  const char* logDevice = nullptr;
  const char* masterDevice = nullptr;
  const char* schemaDir = nullptr;
  int definitionCount = 0;
  char* definitions[max_entries] = {};  // "name=value"
  int operandCount = 0;
  char* operands[max_entries] = {};
  std::int32_t versionFlag = 0;
  const char* inputFile = nullptr;
  std::int32_t helpFlag = 0;
  std::int32_t shortVersionFlag = 0;
  std::int32_t fullVersionFlag = 0;
  std::int32_t forceFlag = 0;
  std::int32_t timeOut = 0;  // seconds

  int refusedOperands = 0;  // how many operands found no place: those words are lost

 private:
  void readEnvironment();
  bool takeOption(int letter, char** argv);
  int takeOperands(int count, char** words);
};

#include "src/utl/messages.h"

#include <array>
#include <utility>

#include "errutils/moxstatus.h"

namespace {

struct Message {
  std::int16_t number;
  const char* text;
  const Message* next = nullptr;  // in the chain
};

// In ascending order of number.
constinit Message builtin_messages[] = {
    {MOX_NORMAL, "Normal successful completion"},
    {16, "Illegal error message"},
    {32, "Illegal error message"},
    {48, "Illegal error message"},
    {64, "Illegal error message"},
    {MOX_NO_SUCH_VARIABLE, "No variable with this name"},
    {MOX_VALUE_OUT_OF_RANGE, "Value \"%1\" of variable \"%2\" is not in the range %3 to %4"},
    {MOX_VALUE_NOT_ALLOWED, "Value \"%1\" of variable \"%2\" is none of: %3"},
    {MOX_VALUE_NOT_A_NUMBER, "Value \"%1\" of variable \"%2\" is not a number"},
    {MOX_VARIABLES_CONTRADICT, "Variables \"%1\" and \"%2\" contradict each other: %3"},
    {MOX_NO_SPACE_LEFT, "No space left on device"},
    {MOX_CANNOT_HAPPEN, "It can't happen here"},
    {MOX_OPEN_FAILED, "Opening file \"%1\" failed, OS status=%i"},
    {MOX_READ_FAILED, "Reading file \"%1\" failed, OS status=%i"},
    {MOX_CONTROL_FAILED, "Control operation on file \"%1\" failed, OS status=%i"},
    {MOX_FILE_OPERATION_FAILED, "Operation on file \"%1\" failed, OS status=%i"},
    {MOX_SHM_GET_FAILED, "Getting shared memory segment with key \"%1\" failed, OS status=%i"},
    {MOX_SHM_REMOVE_FAILED, "Removing shared memory segment with key \"%1\" failed, OS status=%i"},
    {MOX_SHM_ATTACH_FAILED, "Attaching shared memory segment with key \"%1\" failed, OS status=%i"},
    {MOX_SHM_DETACH_FAILED, "Detaching shared memory segment with key \"%1\" failed, OS status=%i"},
    {MOX_SHM_CONTROL_FAILED,
     "Operation on shared memory segment with key \"%1\" failed, OS status=%i"},
    {MOX_SHM_EXISTS, "Shared memory segment with key \"%1\" exists already"},
    {MOX_SEM_CREATE_FAILED, "Creating semaphore with key \"%1\" failed, OS status=%i"},
    {MOX_SEM_OPERATION_FAILED, "Operation on semaphore with key \"%1\" failed, OS status=%i"},
    {MOX_SEM_REMOVE_FAILED, "Removing semaphore with key \"%1\" failed, OS status=%i"},
    {MOX_CONFIG_SYNTAX, "Invalid syntax in configuration file"},
    {MOX_INVALID_OPTION, "Invalid option"},
};

struct SqlState {
  std::int32_t number;
  char state[8];
};

// In ascending order of number.
constexpr SqlState sqlstates[] = {
    {0, "00000"}, {160, "23000"}, {176, "02000"}, {192, "01000"}, {208, "40000"}, {216, "40000"},
};

// One language's messages, in chains by number. Set 0 is the built-in one; a program may bind
// catalogues in other languages into the others.
struct MessageSet {
  const char* language = nullptr;
  const char* territory = nullptr;
  std::array<const Message*, 127> chains{};

  const Message*& chain_of(std::int16_t number) {
    return chains[static_cast<std::uint16_t>(number) % chains.size()];
  }
};

constinit std::array<MessageSet, 32> message_sets;

[[maybe_unused]] const bool bound_before_main = (Status_utlInitMessages(), true);

}  // namespace

void Status_utlInitMessages() {
  MessageSet& set = message_sets[0];
  if (set.language != nullptr) return;
  set.language = "en";
  set.territory = "us";
  for (Message& message : builtin_messages) {
    message.next = std::exchange(set.chain_of(message.number), &message);
  }
}

const char* message_template(std::int32_t number) {
  const auto low_bits = static_cast<std::int16_t>(number);
  const Message* message = message_sets[0].chain_of(low_bits);
  while (message != nullptr && message->number != low_bits) message = message->next;
  return message != nullptr ? message->text : "*** Error number not in use";
}

const char* sqlstate_lookup(std::int32_t number) {
  for (const SqlState& entry : sqlstates) {
    if (entry.number == number) return entry.state;
  }
  return "22000";
}

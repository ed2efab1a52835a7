// `terminal session control`: carries stream records between standard input and output and a session's
// server.
#pragma once

#include <string>

#include "Runtime/Failure.h"
#include "Runtime/Json.h"

namespace ostrel::standin {

// Why there is no stream: words for standard error, since standard output carries records only.
class StreamFailure : public Failure {
 public:
  using Failure::Failure;
};

// Until either side ends. Throws `StreamFailure`.
void relayTerminal(const std::string& socket, const Json& attach);

}  // namespace ostrel::standin

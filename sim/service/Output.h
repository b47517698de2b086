// What the service prints: lines for people, or one JSON object a line.
#pragma once

#include <mutex>
#include <string>

#include "sim/json/Json.h"

namespace sim {

// Safe from any thread; each line is one write.
class Output {
  public:
    explicit Output(bool asJson) : json(asJson) {}

    void ready(const std::string& instance);
    // What came from the application.
    void call(const char* name, const Json& arguments);
    // What was found out about a descriptor in it.
    void socket(const Json& facts);
    // What went to the application. `status` is that of the transaction, "" if it was accepted.
    void request(const char* name, const Json& arguments, const std::string& status);
    // For people; beside the JSON, on the error output.
    void help(const std::string& text);
    // About what was typed: always on the error output.
    void complain(const std::string& text);

  private:
    const bool json;
    std::mutex mutex;

    void print(const Json& line, const std::string& people);
    void put(int fd, const std::string& text);
};

}  // namespace sim

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

    // It can be found: by which name, in which folder, with which version of the records.
    void ready(const std::string& instance, const std::string& folder, int version);
    // What came from the application.
    void call(const std::string& name, const Json& arguments);
    // A call whose arguments are no such.
    void unreadable(const std::string& name, const std::string& status);
    // A callback is the one that is asked from now on; or its process has ended.
    void callback(size_t number);
    void died(size_t number);
    // What was found out about a descriptor in it.
    void socket(const Json& facts);
    // What went to this callback. `status` is that of the transaction, "" if it was accepted.
    void request(const std::string& name, const Json& arguments, size_t callback, const std::string& status);
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

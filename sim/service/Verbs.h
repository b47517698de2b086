// What is typed to the service: requests, and what helps in a script.
#pragma once

#include <string>

#include "sim/service/Service.h"

namespace sim {

class Verbs {
  public:
    Verbs(Service& itsService, Output& itsOutput) : service(itsService), output(itsOutput) {}

    // An example of each, and its arguments.
    static std::string help();

    enum class Outcome { kGood, kWrong, kQuit };
    // Does what the line says. What is wrong with it has been told then.
    Outcome obey(const std::string& line);

  private:
    void obey(const std::vector<Word>& words);

    Service& service;
    Output& output;
};

}  // namespace sim

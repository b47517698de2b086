#pragma once

#include <stdexcept>

namespace sim {

// Something typed is wrong: one line for people.
class BadInput : public std::runtime_error {
  public:
    using runtime_error::runtime_error;
};

}  // namespace sim

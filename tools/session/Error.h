// What goes wrong for a user of a session.
#pragma once

#include <stdexcept>

namespace kov::cam {

/// One line that says what is wrong and what to do.
class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace kov::cam

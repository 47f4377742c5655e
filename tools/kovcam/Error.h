// What goes wrong for a user of kovcam.
#pragma once

#include <stdexcept>

namespace kov::cam {

/// One line that says what is wrong and what to do. `main` prints it and ends with a non-zero status; what was saved
/// before stays.
class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace kov::cam

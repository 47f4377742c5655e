// The host's side of the system properties.
#pragma once

#include <string>

namespace kov::host {

/// Sets a property for this process; it wins over the environment and the file. Any thread.
void setProperty(const std::string& key, const std::string& value);

}  // namespace kov::host

// Drawing what a trace says.
#pragma once

#include <iosfwd>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace kov::cam {

/// The objects of a trace's lines; lines that are none (the last one of a session that was cut off) are left out. Empty
/// when there is no such file.
std::vector<nlohmann::ordered_json> readTrace(const std::string& path);

/// Writes the part of a page that shows calls and messages over time: a lane for the calls, one for the commands, one
/// for each library that was called and one for each type of message, with a legend.
void writeTimeLine(std::ostream& page, const std::vector<nlohmann::ordered_json>& trace);

/// Prints a trace as text, a line each, or writes it as a page when `output` is not empty. Throws Error.
void drawTrace(const std::string& path, const std::string& output);

}  // namespace kov::cam

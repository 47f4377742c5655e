// The options behind the '?' of a source text.

#include "host/camera/SourceOptions.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace kov::camera {

std::string joinNames(const std::vector<std::string>& names) {
    std::string text;
    for (size_t i = 0; i < names.size(); ++i) {
        if (i)
            text += i + 1 == names.size() ? " and " : ", ";
        text += names[i];
    }
    return text;
}

SourceOptions::SourceOptions(const std::string& text) {
    std::istringstream stream(text);
    for (std::string piece; std::getline(stream, piece, '&');) {
        const size_t equals = piece.find('=');
        if (equals == std::string::npos || equals == 0)
            fail("option \"" + piece + "\" is not of the form name=value");
        else
            mValues[piece.substr(0, equals)] = piece.substr(equals + 1);
    }
}

void SourceOptions::fail(const std::string& line) {
    if (mError.empty())
        mError = line;
}

bool SourceOptions::take(const std::string& name, std::string* value) {
    mKnown.push_back(name);
    const auto entry = mValues.find(name);
    if (entry == mValues.end())
        return false;
    *value = entry->second;
    mValues.erase(entry);
    return true;
}

double SourceOptions::number(const std::string& name, double fallback, double least, double most) {
    std::string value;
    if (!take(name, &value))
        return fallback;
    char* end = nullptr;
    const double parsed = std::strtod(value.c_str(), &end);
    if (!value.empty() && *end == '\0' && parsed >= least && parsed <= most)
        return parsed;
    std::ostringstream line;
    line << "option " << name << " must be a number from " << least << " to " << most << ", not \"" << value << '"';
    fail(line.str());
    return fallback;
}

std::string SourceOptions::choice(const std::string& name, const std::vector<std::string>& values) {
    std::string value;
    if (!take(name, &value))
        return values.front();
    if (std::find(values.begin(), values.end(), value) != values.end())
        return value;
    fail("option " + name + " must be one of " + joinNames(values) + ", not \"" + value + '"');
    return values.front();
}

bool SourceOptions::finish() {
    if (!mValues.empty())
        fail("unknown option \"" + mValues.begin()->first + "\"; " +
             (mKnown.empty() ? "it has no options" : "its options are " + joinNames(mKnown)));
    return mError.empty();
}

}  // namespace kov::camera

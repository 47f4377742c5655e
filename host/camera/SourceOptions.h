// The options behind the '?' of a source text.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace kov::camera {

/// Reads options one by one; what is wrong is kept as one line in `error`. A source reads all its options and then
/// calls `finish`, which refuses what nobody asked for.
class SourceOptions {
public:
    /// `text`: "name=value&name=value", or empty.
    explicit SourceOptions(const std::string& text);

    /// A number between `least` and `most`.
    double number(const std::string& name, double fallback, double least, double most);
    /// One of `values`; the first is the default.
    std::string choice(const std::string& name, const std::vector<std::string>& values);
    /// True when every option was good and asked for.
    bool finish();
    const std::string& error() const { return mError; }

private:
    void fail(const std::string& line);
    /// Takes an option out; false when it was not given.
    bool take(const std::string& name, std::string* value);

    std::map<std::string, std::string> mValues;
    std::vector<std::string> mKnown;
    std::string mError;
};

/// "a, b and c".
std::string joinNames(const std::vector<std::string>& names);

}  // namespace kov::camera

// System properties. Looked up in this order: what the process set; the environment, as KOV_PROP_ and the key with '_'
// for every other character than letters and digits; the file that KOV_PROPERTIES names, a line "key=value" each.

#include "Properties.h"

#include <cutils/properties.h>
#include <utils/threads.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>

namespace kov::host {

namespace {

android::Mutex gLock;
std::map<std::string, std::string> gSet GUARDED_BY(gLock);

std::optional<std::string> fromProcess(const std::string& key) {
    const android::AutoMutex held(gLock);
    const auto entry = gSet.find(key);
    return entry == gSet.end() ? std::nullopt : std::optional(entry->second);
}

std::optional<std::string> fromEnvironment(const std::string& key) {
    std::string name = "KOV_PROP_" + key;
    for (char& c : name) {
        if (!std::isalnum(static_cast<unsigned char>(c)))
            c = '_';
    }
    const char* value = std::getenv(name.c_str());
    return value ? std::optional<std::string>(value) : std::nullopt;
}

std::optional<std::string> fromFile(const std::string& key) {
    const char* path = std::getenv("KOV_PROPERTIES");
    if (!path)
        return std::nullopt;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, key.size(), key) == 0 && line.size() > key.size() && line[key.size()] == '=')
            return line.substr(key.size() + 1);
    }
    return std::nullopt;
}

}  // namespace

void setProperty(const std::string& key, const std::string& value) {
    const android::AutoMutex held(gLock);
    gSet.insert_or_assign(key, value);
}

}  // namespace kov::host

int property_get(const char* key, char* value, const char* default_value) {
    using namespace kov::host;
    std::optional<std::string> found = fromProcess(key);
    if (!found)
        found = fromEnvironment(key);
    if (!found)
        found = fromFile(key);
    const std::string text = found.value_or(default_value ? default_value : "").substr(0, PROPERTY_VALUE_MAX - 1);
    std::memcpy(value, text.c_str(), text.size() + 1);
    return static_cast<int>(text.size());
}

// A folder for one test, removed with it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace kov::test {

class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "kov-XXXXXX").string();
        mPath = mkdtemp(name.data());
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string operator/(const std::string& name) const { return mPath + "/" + name; }
    const std::string& path() const { return mPath; }
    void write(const std::string& name, const std::string& bytes) const { std::ofstream(*this / name) << bytes; }
    std::string read(const std::string& name) const {
        std::ifstream file(*this / name);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::string mPath;
};

}  // namespace kov::test

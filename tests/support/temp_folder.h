#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace test {

/// A folder of the test's own, removed with all it holds at the end.
class TempFolder {
public:
    TempFolder() : m_path((std::filesystem::temp_directory_path() / "zelkor-test-XXXXXX").string()) {
        if (::mkdtemp(m_path.data()) == nullptr) {
            throw std::runtime_error("cannot make a folder for the test");
        }
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    const std::string& Path() const noexcept { return m_path; }
    std::string Path(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

}  // namespace test

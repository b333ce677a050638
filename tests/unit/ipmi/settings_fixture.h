#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <string>
#include <utility>

#include "bmc/ipmi/settings.h"
#include "qcfg/document.h"
#include "tests/support/expect_text.h"
#include "tests/support/file.h"
#include "tests/support/temp_folder.h"

namespace test {

/// A variable of the environment that is as it was before when the object ends.
class EnvironmentVariable {
public:
    EnvironmentVariable(std::string name, const char* value) : m_name(std::move(name)) {
        const char* const before = std::getenv(m_name.c_str());
        m_wasSet = before != nullptr;
        m_before = m_wasSet ? before : "";
        Set(value);
    }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
    ~EnvironmentVariable() { Set(m_wasSet ? m_before.c_str() : nullptr); }

    /// @param value null: not set
    void Set(const char* value) const {
        if (value == nullptr) {
            ::unsetenv(m_name.c_str());
        } else {
            ::setenv(m_name.c_str(), value, 1);
        }
    }

private:
    std::string m_name;
    std::string m_before;
    bool m_wasSet = false;
};

/// A configuration's folder with passwords in it.
class SettingsTest : public testing::Test {
protected:
    SettingsTest() {
        WriteSecret("a.pass", "first\n");
        WriteSecret("b.pass", "second\n");
    }

    void WriteSecret(const std::string& name, const std::string& text, ::mode_t mode = 0600) const {
        WriteFile(m_folder.Path(name), text);
        ::chmod(m_folder.Path(name).c_str(), mode);
    }

    std::string ConfigFile() const { return m_folder.Path("z.xml"); }

    /// From the section, which begins in line 2.
    bmc::ipmi::Settings Read(const std::string& section) const {
        return bmc::ipmi::ReadSettings(*qcfg::ReadXmlText("\n" + section, "z.xml"), ConfigFile());
    }
    std::string ErrorOf(const std::string& section) const {
        return TextOf([&] { Read(section); });
    }
    std::string At(int line) const { return ConfigFile() + ":" + std::to_string(line) + ": "; }

    /// The section with boards in it, each of them in a line of its own, the first in line 3.
    static std::string Section(const std::string& boards) { return "<boards backend='ipmi'>\n" + boards + "</boards>"; }
    static std::string Board(const std::string& attributes, const std::string& children = "") {
        return "<board " + attributes + ">" + children + "</board>\n";
    }
    /// A board that is fine but for what @p attributes say of it.
    static std::string LanBoard(const std::string& attributes = "", const std::string& children = "") {
        return Board("uri='io/1' type='io' name='IO1' host='10.0.0.1' user='ops' password-file='a.pass' " + attributes,
                     children);
    }

    TempFolder m_folder;
    EnvironmentVariable m_cache{"CACHE_DIRECTORY", nullptr};
    EnvironmentVariable m_credentials{"CREDENTIALS_DIRECTORY", nullptr};
};

}  // namespace test

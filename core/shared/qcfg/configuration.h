#pragma once

#include <memory>
#include <string>
#include <vector>

#include "qcfg/element.h"
#include "qcfg/serializable.h"

namespace qcfg {

/// The parsed configuration of the application. Loaded once, before other threads read it; after that any thread may.
class Configuration {
public:
    /// Name of the root element.
    static constexpr const char* c_rootName = "zelkor";

    /// An empty configuration: no section is there.
    Configuration();

    /// Replaces the configuration by that of @p fileName.
    /// @throws qstd::Exception "FILE:LINE: text"; the configuration is then unchanged.
    void Load(const std::string& fileName);

    /// The same from a text in memory. @param name stands for FILE in messages; relative paths are relative to it.
    void LoadText(const std::string& text, const std::string& name);

    /// Passes the sections named @p object.GetClassName(), possibly none, to its Deserialize and returns the result.
    /// A section that is empty (no attribute, no child, no text) counts as absent. Exceptions of Deserialize pass
    /// through.
    bool Read(ISerializable& object) const;

    /// The sections named @p name in document order, empty ones left out.
    std::vector<std::shared_ptr<Element>> FindSections(const std::string& name) const;

    const Element& GetRoot() const noexcept { return *m_root; }

    /// The file as it was named; empty when nothing was loaded.
    const std::string& GetFileName() const noexcept { return m_fileName; }

    /// @p path as it is when absolute, else taken relative to the configuration file's folder.
    std::string ResolvePath(const std::string& path) const;

private:
    void Take(std::shared_ptr<Element> root, const std::string& fileName);

    std::shared_ptr<Element> m_root;
    std::string m_fileName;
};

}  // namespace qcfg

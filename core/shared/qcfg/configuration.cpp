#include "qcfg/configuration.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <utility>

#include "qcfg/document.h"
#include "qstd/exception.h"

namespace qcfg {

Configuration::Configuration() : m_root(std::make_shared<Element>(c_rootName)) {}

void Configuration::Load(const std::string& fileName) {
    Take(ReadXmlFile(fileName), fileName);
}

void Configuration::LoadText(const std::string& text, const std::string& name) {
    Take(ReadXmlText(text, name), name);
}

void Configuration::Take(std::shared_ptr<Element> root, const std::string& fileName) {
    if (root->GetName() != c_rootName) {
        throw qstd::Exception(
            AtLine(fileName, root->GetLine(), "root element is <" + root->GetName() + ">, not <" + c_rootName + ">"));
    }
    m_root = std::move(root);
    m_fileName = fileName;
}

std::vector<std::shared_ptr<Element>> Configuration::FindSections(const std::string& name) const {
    std::vector<std::shared_ptr<Element>> sections;
    const auto& children = m_root->GetChildren();
    std::copy_if(children.begin(), children.end(), std::back_inserter(sections),
                 [&name](const auto& child) { return child->GetName() == name && !child->IsEmpty(); });
    return sections;
}

bool Configuration::Read(ISerializable& object) const {
    return object.Deserialize(FindSections(object.GetClassName()));
}

std::string Configuration::ResolvePath(const std::string& path) const {
    return (std::filesystem::path(m_fileName).parent_path() / path).string();
}

}  // namespace qcfg

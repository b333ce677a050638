#pragma once

#include <memory>
#include <string>
#include <vector>

#include "qcfg/element.h"

namespace qcfg {

/// An object whose settings stand in a section of the configuration.
class ISerializable {
public:
    virtual ~ISerializable() = default;

    /// Takes the settings from the section's elements, of which there may be none.
    /// @return whether the section is there and was taken.
    virtual bool Deserialize(const std::vector<std::shared_ptr<Element>>& elements) = 0;

    /// Appends the settings as elements. By default an object has none to give.
    virtual void Serialize(std::vector<std::shared_ptr<Element>>& elements);

    /// Name of the object's section. By default an object has none.
    virtual std::string GetClassName();

protected:
    ISerializable() = default;
    ISerializable(const ISerializable&) = default;
    ISerializable& operator=(const ISerializable&) = default;
};

}  // namespace qcfg

#include "qcfg/serializable.h"

namespace qcfg {

void ISerializable::Serialize(std::vector<std::shared_ptr<Element>>& /*elements*/) {}

std::string ISerializable::GetClassName() {
    return {};
}

}  // namespace qcfg

#include "qapp/zelkor_object.h"

namespace qapp {

void ZelkorObject::OnRegistryAdd(std::shared_ptr<qnode::TreeNode>& /*node*/) {}

bool ZelkorObject::OnQueryChild(const ZelkorObject& /*child*/) {
    return true;
}

std::string ZelkorObject::OnGetName() const {
    return {};
}

}  // namespace qapp

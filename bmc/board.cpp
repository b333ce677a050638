#include "bmc/board.h"

namespace bmc {

std::vector<FpgaWriteResult> Board::FpgaSpiWriteAll(const std::vector<FpgaRegisterValue>& values) const {
    std::vector<FpgaWriteResult> results;
    results.reserve(values.size());
    for (const FpgaRegisterValue& each : values) {
        results.push_back(FpgaSpiWrite(each.address, each.value));
    }
    return results;
}

}  // namespace bmc

#pragma once

namespace qfeature {

/// One synchronisation of the instrument's timing, as announced to an application's timing hooks. The platform daemon
/// takes no part in timing; the type names the hooks' argument.
class LocalTimingSync {
public:
    LocalTimingSync() = default;
    LocalTimingSync(const LocalTimingSync&) = delete;
    LocalTimingSync& operator=(const LocalTimingSync&) = delete;
    virtual ~LocalTimingSync() = default;
};

}  // namespace qfeature

#pragma once

#include <string>

#include "damage_protection.h"
#include "worker_fixture.h"

namespace test {

/// A damage protection on three mock boards. By default it watches 7 of the host (limit 105), 5 of SLOT_2 (limit 100)
/// and 12 of the controller (limit 95), in the order ICB_1, SLOT_2, HOST_0.
class DamageProtectionTest : public WorkerTest<DamageProtection> {
protected:
    DamageProtectionTest() : WorkerTest("Damage Protection") {}

    /// One more pass. The period must be 60 s.
    void Pass() { WorkerTest::Pass(std::chrono::seconds(60)); }

    const bmc::Uri m_slot2Uri{"u:b", "SLOT", "2"};
};

}  // namespace test

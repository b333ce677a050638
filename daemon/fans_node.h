#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bmc/board.h"
#include "qreg/reg_node.h"

/// Registry node "fans", which stands for all chassis fans at once and has them as its children: reading it gives the
/// mean measured speed, writing it sets every fan, in RPM. Without a chassis controller board it has no children, and
/// its value can neither be read nor set. Made by the node factory; any thread may call any operation then.
class FansNode : public qreg::RegNode {
public:
    static constexpr std::size_t c_fans = 6;

    /// The register of the first fan's reference speed.
    static constexpr std::uint16_t c_firstFan = 0x40;

    FansNode();

    /// Finds the first chassis controller board of the pool and makes the fans on it. Called once, by the factory.
    /// @return whether the fans are there; what went wrong was logged.
    bool Init() override;

    /// The speeds that were last asked for, in the order of the fans; a fan that cannot be read is left out.
    std::vector<double> GetReferenceFansSpeed() const;

    /// Real.
    qnode::enums::ValueType_e OnGetValueType(const std::string& path) const override;
    /// One value.
    std::size_t OnGetSize(const std::string& path) const override;

    using RegNode::OnGet;
    /// The mean speed in 17 significant digits. @return true @throws as the number's OnGet
    bool OnGet(std::string* value, std::size_t position, std::size_t count) const override;
    /// The mean measured speed of the fans that can be read, 0 when none can. @return true
    /// @throws std::bad_weak_ptr without fans.
    bool OnGet(double* value, std::size_t position, std::size_t count) const override;

    using RegNode::OnSet;
    /// A speed as text. @throws boost::bad_lexical_cast when it is no number; as the number's OnSet.
    void OnSet(const std::string* value, std::size_t position, std::size_t count) override;
    /// Sets the reference speed of every fan, one after the other, in one access to the board where it can do that.
    /// @throws std::bad_weak_ptr without fans; qstd::Exception as FanNode::RpmToRaw; no fan is changed then. What the
    /// board throws: fans whose turn had come before may have the new speed.
    void OnSet(const double* value, std::size_t position, std::size_t count) override;

private:
    /// The fans' reference speed registers, in the order of the children.
    // NOLINTNEXTLINE(readability-identifier-naming): a name that others know
    static constexpr std::array<std::uint32_t, c_fans> m_fan_addresses{c_firstFan, 0x48, 0x50, 0x58, 0x60, 0x68};

    /// The first chassis controller board of the pool, null when there is none.
    static bmc::Board* FindController();

    std::array<std::weak_ptr<qnode::TreeNode>, c_fans> m_fans;  ///< the children; empty without fans
    bmc::Board* m_board = nullptr;                              ///< carries the fans; null without any
};

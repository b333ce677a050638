#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "bmc/board.h"
#include "qreg/reg_node.h"

/// Registry node of one chassis fan: reading it gives the measured speed, writing it sets the reference speed, both in
/// RPM. The fan controller holds speeds as 16-bit counts of one revolution's period: the higher the count, the slower
/// the fan. Any thread may call any operation; each is at most one access to the board.
class FanNode : public qreg::RegNode {
public:
    /// @param board carries the fan controller; lives longer than the node
    /// @param address the fan's reference speed register; the measured speed stands two above it
    /// @throws qstd::Exception when no fan has this address.
    FanNode(bmc::Board* board, std::uint16_t address);

    /// The name of the fan at a register address, empty when there is none.
    static std::string FanName(std::uint16_t address);

    /// The register value of a speed. 0 is what comes out for 0 RPM and for speeds beyond 1935483 RPM.
    /// @throws qstd::Exception naming the speed when no register value stands for it: below about 29.5 RPM, negative,
    ///         not a number.
    static std::uint16_t RpmToRaw(const double& rpm);

    /// The speed that the register at @p address holds. @return false, with @p rpm untouched, when the transfer failed.
    bool ReadRPM(std::uint16_t address, double& rpm) const;

    /// The speed that was last asked for, as ReadRPM.
    bool GetReferenceSpeed(double& rpm) const;

    /// The register, and what is to be written to it, for the reference speed @p rpm. @throws as RpmToRaw.
    bmc::FpgaRegisterValue GetReferenceFor(const double& rpm) const;

    /// Real.
    qnode::enums::ValueType_e OnGetValueType(const std::string& path) const override;
    /// One value.
    std::size_t OnGetSize(const std::string& path) const override;

    using RegNode::OnGet;
    /// The measured speed in 17 significant digits; "0" when the transfer failed. @return true
    bool OnGet(std::string* value, std::size_t position, std::size_t count) const override;
    /// The measured speed. @return false, with @p value untouched, when the transfer failed.
    bool OnGet(double* value, std::size_t position, std::size_t count) const override;

    using RegNode::OnSet;
    /// A speed as text. @throws boost::bad_lexical_cast when it is no number; as the number's OnSet.
    void OnSet(const std::string* value, std::size_t position, std::size_t count) override;
    /// Sets the reference speed. @throws qstd::Exception as RpmToRaw; nothing is then written.
    void OnSet(const double* value, std::size_t position, std::size_t count) override;

private:
    const std::uint16_t m_address;
    bmc::Board* const m_board;
};

#include "bmc/ipmi/configuration_rule.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bmc/enums.h"
#include "bmc/ipmi/settings.h"
#include "bmc/uri.h"
#include "qcfg/value_types.h"
#include "qstd/exception.h"

namespace bmc::ipmi {

namespace {

using qcfg::AttributeRule;
using qcfg::ElementRule;
using qcfg::Occurrence_e;

/// A type whose values IPMI or board management define.
class OwnType : public qcfg::ValueType {
public:
    using FaultFunction = std::string (*)(const std::string& text);

    OwnType(std::string schemaName, std::string what, std::vector<qcfg::SchemaForm> forms, FaultFunction findFault)
        : m_schemaName(std::move(schemaName)),
          m_what(std::move(what)),
          m_forms(std::move(forms)),
          m_findFault(findFault) {}

    std::string FindFault(const std::string& text, qcfg::Place_e /*place*/) const override { return m_findFault(text); }
    std::string Describe(qcfg::Place_e /*place*/) const override { return m_what; }
    std::string GetSchemaName(qcfg::Place_e /*place*/) const override { return m_schemaName; }
    std::vector<qcfg::SchemaForm> GetSchemaForms(qcfg::Place_e /*place*/) const override { return m_forms; }

private:
    std::string m_schemaName;
    std::string m_what;
    std::vector<qcfg::SchemaForm> m_forms;
    FaultFunction m_findFault;
};

qcfg::ValueTypePtr BoardUri() {
    const std::string part = "[A-Za-z0-9_\\-][A-Za-z0-9_.\\-]*";
    return std::make_shared<OwnType>("boardUri", "SUBSYSTEM/ID",
                                     std::vector<qcfg::SchemaForm>{{"xs:string", {{"pattern", part + "/" + part}}}},
                                     [](const std::string& text) -> std::string {
                                         try {
                                             Uri::Parse(text);
                                             return {};
                                         } catch (const qstd::Exception&) {
                                             return "is not of the form SUBSYSTEM/ID, of letters, digits, \"_\", \"-\" "
                                                    "and \".\"";
                                         }
                                     });
}

qcfg::ValueTypePtr HostAddress() {
    const qcfg::ValueTypePtr address = qcfg::Address();
    return std::make_shared<OwnType>(
        address->GetSchemaName(qcfg::Place_e::attribute), address->Describe(qcfg::Place_e::attribute),
        address->GetSchemaForms(qcfg::Place_e::attribute), [](const std::string& text) -> std::string {
            const std::string fault = qcfg::Address()->FindFault(text, qcfg::Place_e::attribute);
            return fault.empty() ? ""
                                 : fault +
                                       "; names are not looked up, because a name "
                                       "server that hangs would hang the board";
        });
}

/// Why a cipher suite is not taken (IPMI v2.0 specification, table 22-20); empty for one that is.
std::string FindCipherFault(const std::string& text) {
    static const std::vector<std::pair<const char*, const char*>> c_reasons = {
        {"17", ""},
        {"3", ""},
        {"0", "has no authentication"},
        {"1", "has no encryption"},
        {"2", "has no encryption"},
        {"4", "encrypts with RC4"},
        {"5", "encrypts with RC4"},
        {"6", "has no encryption"},
        {"7", "has no encryption"},
        {"8", "authenticates with MD5"},
        {"9", "encrypts with RC4"},
        {"10", "encrypts with RC4"},
        {"11", "has no encryption"},
        {"12", "authenticates with MD5"},
        {"13", "encrypts with RC4"},
        {"14", "encrypts with RC4"},
        {"15", "has no encryption"},
        {"16", "has no encryption"},
        {"18", "encrypts with RC4"},
        {"19", "encrypts with RC4"},
    };
    for (const auto& [suite, reason] : c_reasons) {
        if (text == suite) {
            return *reason == '\0' ? "" : std::string(reason) + "; taken are 17 and, weaker, 3";
        }
    }
    return "is no cipher suite; taken are 17 and, weaker, 3";
}

qcfg::ValueTypePtr CipherSuite() {
    return std::make_shared<OwnType>(
        "cipherSuite", "17 or 3",
        std::vector<qcfg::SchemaForm>{{"xs:string", {{"enumeration", "17"}, {"enumeration", "3"}}}}, FindCipherFault);
}

ElementRule FpgaRule() {
    ElementRule rule{.name = "fpga",
                     .doc =
                         "How the registers of the fan controller are reached by commands of the board's own. A "
                         "command is bytes separated by blanks, decimal or hexadecimal with 0x: network function "
                         "(even, 0x00..0x3e), command, data. {addr:hi}, {addr:lo}, {value:hi} and {value:lo} stand for "
                         "the bytes of a register's address and value. Without this element the board has no such "
                         "registers."};
    rule.attributes = {
        {.name = "read",
         .type = qcfg::Text("bytes"),
         .isRequired = true,
         .doc = "The command that reads a register; holds both bytes of the address."},
        {.name = "write",
         .type = qcfg::Text("bytes"),
         .isRequired = true,
         .doc = "The command that writes a register; holds both bytes of the address and of the value. Each write is "
                "verified by reading back."},
        {.name = "reply",
         .type = qcfg::Text("bytes"),
         .isRequired = true,
         .doc = "What the board answers to a read, after the completion code; holds both bytes of the value. Other "
                "bytes must be as written, * is any byte, more bytes may follow."},
        {.name = "revision",
         .type = qcfg::WholeOrHex(0, 0xffff),
         .doc = "Address of the register with the revision of the FPGA; when left out, it is not known."},
    };
    return rule;
}

std::vector<AttributeRule> BoardIdentity() {
    return {
        {.name = "uri", .type = BoardUri(), .isRequired = true, .doc = "The board's own name in the chassis."},
        {.name = "type",
         .type = qcfg::EnumName<BoardType_e>("boardType", "board type"),
         .isRequired = true,
         .doc = "What the board is; any but none."},
        {.name = "name",
         .type = qcfg::Text("text"),
         .isRequired = true,
         .doc = "The board's name for people and in the registry; each board has another."},
        {.name = "prefix", .type = qcfg::Text("text"), .doc = "What the board calls itself; nothing when left out."},
    };
}

std::vector<AttributeRule> WayToController() {
    return {
        {.name = "host",
         .type = HostAddress(),
         .doc = "Address of the board's management controller on the LAN. Either this or device is given. Boards with "
                "the same host and port, or the same device, share one session; user, password, privilege and "
                "cipher are then the same for all of them."},
        {.name = "port", .type = qcfg::Whole(1, 65535), .defaultValue = "623", .doc = "UDP port of the controller."},
        {.name = "user",
         .type = qcfg::Text("text"),
         .doc = "Name of the controller's account, 1 to 16 bytes; required with host."},
        {.name = "password-file",
         .type = qcfg::Text("path of a file"),
         .doc = "File whose only line is the account's password, 1 to 20 bytes. It belongs to root or the service's "
                "user, and nobody else may read or write it. With host, either this or password-credential is given."},
        {.name = "password-credential",
         .type = qcfg::Text("name of a credential"),
         .doc = "Name of the service manager's credential that holds the password (LoadCredential= of the unit)."},
        {.name = "privilege",
         .type = qcfg::EnumName<Privilege_e>("privilege", "privilege level"),
         .defaultValue = "operator",
         .doc = "What the session may do: user reads sensors, operator also sets clocks and switches power; the "
                "commands of fpga may need administrator."},
        {.name = "cipher",
         .type = CipherSuite(),
         .defaultValue = "17",
         .doc = "Cipher suite of the session. 3 is weaker (SHA1) and taken only when written here."},
        {.name = "device",
         .type = qcfg::Text("path of a device"),
         .doc = "The system interface, for example /dev/ipmi0, when the board's controller is that of this host."},
        {.name = "ipmb",
         .type = qcfg::WholeOrHex(0x02, 0xfe),
         .defaultValue = "0x20",
         .doc = "Slave address of the board's controller, even; another than 0x20 is behind the controller that host "
                "or device reaches."},
        {.name = "channel",
         .type = qcfg::Whole(0, 15),
         .defaultValue = "0",
         .doc = "Channel of the bus (IPMB) between the two; 0 is the primary one."},
    };
}

ElementRule BoardRule() {
    ElementRule rule{.name = "board", .occurrence = Occurrence_e::any, .doc = "A board; at least one must be there."};
    rule.attributes = BoardIdentity();
    for (AttributeRule& attribute : WayToController()) {
        rule.attributes.push_back(std::move(attribute));
    }
    rule.children = {FpgaRule()};
    return rule;
}

}  // namespace

qcfg::VariantRule ConfigurationRule() {
    qcfg::VariantRule rule{.name = "ipmi", .doc = "boards with management controllers, over LAN or this host's own."};
    rule.attributes = {
        {.name = "timeout",
         .type = qcfg::Whole(10, 60000),
         .defaultValue = "1000",
         .doc = "Milliseconds that a try waits for the controller's answer."},
        {.name = "retries",
         .type = qcfg::Whole(0, 10),
         .defaultValue = "2",
         .doc = "How often a request that changes nothing is sent again when no answer came."},
        {.name = "cache",
         .type = qcfg::Text("path of a folder, or \"none\""),
         .doc = "Where descriptions of sensors are kept over restarts. When left out: the service manager's "
                "cache folder of the service, or else /var/cache/zelkor."},
    };
    rule.children = {BoardRule()};
    return rule;
}

qcfg::ElementRule SectionRule() {
    ElementRule rule{.name = "boards", .doc = "How the boards are reached."};
    rule.variantAttribute = "backend";
    rule.variantDoc = "The way to the boards.";
    rule.variants = {ConfigurationRule()};
    return rule;
}

}  // namespace bmc::ipmi

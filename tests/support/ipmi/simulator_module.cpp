// The module that is loaded into the simulator: it stands before the simulator's own handlers of requests, obeys and
// counts as the shared state says, and answers by itself what the simulator lacks or answers wrongly.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "tests/support/ipmi/cipher_suite_17.h"
#include "tests/support/ipmi/simulator_state.h"

extern "C" {
#include <OpenIPMI/mcserv.h>

int ipmi_sim_module_print_version(sys_data_t* sys, char* options);
int ipmi_sim_module_init(sys_data_t* sys, char* options);
}

namespace {

using test::Add;
using test::CommandState;
using test::ControllerState;
using test::FpgaState;
using test::Load;
using test::SensorState;
using test::SimulatorState;
using test::Store;
using test::WriteState;

constexpr unsigned char c_chassis = 0x00;
constexpr unsigned char c_sensor = 0x04;
constexpr unsigned char c_application = 0x06;
constexpr unsigned char c_storage = 0x0a;
constexpr unsigned char c_transport = 0x0c;

constexpr unsigned char c_invalidCommand = 0xc1;
constexpr unsigned char c_invalidLength = 0xc7;
constexpr unsigned char c_invalidData = 0xcc;
constexpr unsigned char c_wrongState = 0xd5;

constexpr std::uint64_t c_nanosecondsPerSecond = 1'000'000'000;

SimulatorState* g_state = nullptr;
sys_data_t* g_system = nullptr;

// A request as the simulator hands it on, and where its reply goes: completion code first.
struct Request {
    lmc_data_t* mc;
    msg_t* message;
    unsigned char* reply;
    unsigned int* replyLength;
    ControllerState& controller;

    unsigned int Length() const { return message->len; }
    unsigned char Data(unsigned int at) const { return message->data[at]; }
    bool Is(unsigned char netFunction, unsigned char command) const {
        return message->netfn == netFunction && message->cmd == command;
    }
    void Reply(std::initializer_list<int> bytes) const {
        std::transform(bytes.begin(), bytes.end(), reply, [](int byte) { return static_cast<unsigned char>(byte); });
        *replyLength = static_cast<unsigned int>(bytes.size());
    }
};

std::uint64_t Now() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * c_nanosecondsPerSecond + static_cast<std::uint64_t>(now.tv_nsec);
}

void WaitUntil(std::uint64_t time) {
    const timespec end{static_cast<time_t>(time / c_nanosecondsPerSecond),
                       static_cast<long>(time % c_nanosecondsPerSecond)};
    while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) != 0) {
    }
}

ControllerState* FindController(unsigned char address) {
    for (ControllerState& controller : g_state->controllers) {
        if (Load(controller.address) == address) {
            return &controller;
        }
    }
    return nullptr;
}

void ControlChassis(const Request& request) {
    ControllerState& controller = request.controller;
    if (request.Length() < 1) {
        return request.Reply({c_invalidLength});
    }
    const bool isOn = Load(controller.isPowerOn) != 0;
    switch (request.Data(0) & 0x0f) {
        case 0:
            Store(controller.isPowerOn, std::uint8_t{0});
            break;
        case 1:
            Store(controller.isPowerOn, std::uint8_t{1});
            break;
        case 2:
        case 3:
        case 4:
            if (!isOn) {
                return request.Reply({c_wrongState});
            }
            break;
        case 5:
            if (Load(controller.obeysShutdown) != 0) {
                Store(controller.isPowerOn, std::uint8_t{0});
            }
            break;
        default:
            return request.Reply({c_invalidData});
    }
    request.Reply({0});
}

void Identify(const Request& request) {
    const bool isForced = request.Length() > 1 && (request.Data(1) & 1) != 0;
    const bool isTimed = request.Length() == 0 || request.Data(0) != 0;
    Store(request.controller.identify, static_cast<std::uint8_t>(isForced ? 2 : (isTimed ? 1 : 0)));
    request.Reply({0});
}

void TellReadingFactors(const Request& request) {
    if (request.Length() < 2) {
        return request.Reply({c_invalidLength});
    }
    const SensorState& sensor = request.controller.sensors[request.Data(0)];
    const bool isUpper = request.Data(1) >= 0x80;
    const std::uint8_t(&f)[6] = sensor.factors[isUpper ? 1 : 0];
    if (f[0] == 0 && f[1] == 0) {
        return request.Reply({c_invalidCommand});
    }
    request.Reply({0, isUpper ? 0 : 0x80, f[0], f[1], f[2], f[3], f[4], f[5]});
}

bool HasPrefix(const Request& request, unsigned int length) {
    const FpgaState& fpga = g_state->fpga;
    return request.Length() == fpga.prefixLength + length &&
           std::equal(fpga.prefix, fpga.prefix + fpga.prefixLength, request.message->data);
}

std::uint16_t Word(const Request& request, unsigned int at) {
    const unsigned char* bytes = request.message->data + g_state->fpga.prefixLength + at;
    return static_cast<std::uint16_t>(g_state->fpga.isLowByteFirst != 0 ? bytes[0] | bytes[1] << 8
                                                                        : bytes[0] << 8 | bytes[1]);
}

void AccessFpga(const Request& request) {
    const FpgaState& fpga = g_state->fpga;
    const bool isWrite = request.message->cmd == fpga.writeCommand;
    if (!HasPrefix(request, isWrite ? 4 : 2)) {
        return request.Reply({c_invalidLength});
    }
    std::uint16_t& place = request.controller.registers[Word(request, 0)];
    request.Reply({0});
    std::copy_n(fpga.prefix, fpga.prefixLength, request.reply + 1);
    *request.replyLength += fpga.prefixLength;
    if (isWrite) {
        Store(place, Word(request, 2));
        return;
    }
    const std::uint16_t value = Load(place);
    const auto high = static_cast<unsigned char>(value >> 8);
    const auto low = static_cast<unsigned char>(value & 0xff);
    request.reply[(*request.replyLength)++] = fpga.isLowByteFirst != 0 ? low : high;
    request.reply[(*request.replyLength)++] = fpga.isLowByteFirst != 0 ? high : low;
}

bool IsFpga(const Request& request) {
    const FpgaState& fpga = g_state->fpga;
    return request.Is(fpga.netFunction, fpga.readCommand) || request.Is(fpga.netFunction, fpga.writeCommand);
}

// Requests that the simulator does not know or answers with bytes that were never set.
bool AnswerByItself(const Request& request) {
    const ControllerState& controller = request.controller;
    if (request.Is(c_chassis, 0x00)) {
        request.Reply({0, 0, 0x20, 0x20, 0x20, 0x20});
    } else if (request.Is(c_chassis, 0x01)) {
        const int identify = Load(controller.isIdentifySupported) != 0 ? 0x40 | Load(controller.identify) << 4 : 0;
        request.Reply({0, Load(controller.isPowerOn), 0, identify});
    } else if (request.Is(c_chassis, 0x02)) {
        ControlChassis(request);
    } else if (request.Is(c_chassis, 0x04)) {
        Identify(request);
    } else if (request.Is(c_application, 0x04)) {
        request.Reply({0, Load(controller.selfTest[0]), Load(controller.selfTest[1])});
    } else if (request.Is(c_sensor, 0x23)) {
        TellReadingFactors(request);
    } else if (IsFpga(request)) {
        AccessFpga(request);
    } else {
        return false;
    }
    return true;
}

void AskSimulator(const Request& request, void* original) {
    if (original == nullptr) {
        return handle_invalid_cmd(request.mc, request.reply, request.replyLength);
    }
    reinterpret_cast<cmd_handler_f>(original)(request.mc, request.message, request.reply, request.replyLength, nullptr);
    if (request.reply[0] != 0) {
        return;
    }
    if (request.Is(c_application, 0x01) && Load(request.controller.isUpdating) != 0) {
        request.reply[3] = static_cast<unsigned char>(request.reply[3] | 0x80);
    }
    if (request.Is(c_sensor, 0x2d) && *request.replyLength > 2) {
        const SensorState& sensor = request.controller.sensors[request.Data(0)];
        const int scanning = Load(sensor.isNotScanned) != 0 ? 0 : 0x40;
        const int unavailable = Load(sensor.isUnavailable) != 0 ? 0x20 : 0;
        request.reply[2] = static_cast<unsigned char>((request.reply[2] & ~0x60) | scanning | unavailable);
    }
}

unsigned char ForcedCode(const Request& request, const CommandState& command) {
    if (const std::uint8_t code = Load(command.completionCode); code != 0) {
        return code;
    }
    if (request.Is(c_sensor, 0x2d) && request.Length() > 0) {
        return Load(request.controller.sensors[request.Data(0)].completionCode);
    }
    return 0;
}

bool IsWrite(const Request& request) {
    return request.Is(c_chassis, 0x02) || request.Is(c_chassis, 0x04) || request.Is(c_sensor, 0x26) ||
           request.Is(c_storage, 0x49) || request.Is(g_state->fpga.netFunction, g_state->fpga.writeCommand);
}

void Record(const Request& request) {
    const std::uint32_t at = Load(g_state->writeCount);
    if (at < SimulatorState::c_maxWrites) {
        WriteState& write = g_state->writes[at];
        write.controller = request.controller.address;
        write.netFunction = request.message->netfn;
        write.command = request.message->cmd;
        write.length = static_cast<std::uint8_t>(std::min<std::size_t>(request.Length(), sizeof write.data));
        std::copy_n(request.message->data, write.length, write.data);
    }
    Store(g_state->writeCount, at + 1);
}

// Every request to every controller comes here, those that were carried by Send Message as well.
void Serve(lmc_data_t* mc, msg_t* message, unsigned char* reply, unsigned int* replyLength, void* original) {
    const std::uint64_t start = Now();
    ControllerState* controller = FindController(g_system->mc_get_ipmb(mc));
    if (controller == nullptr) {
        reply[0] = c_invalidCommand;
        *replyLength = 1;
        return;
    }
    const Request request{mc, message, reply, replyLength, *controller};
    CommandState& command = controller->commands[message->netfn >> 1 & 0x1f][message->cmd];
    Add(command.count, std::uint32_t{1});
    if (const unsigned char code = ForcedCode(request, command); code != 0) {
        request.Reply({code});
    } else if (!AnswerByItself(request)) {
        AskSimulator(request, original);
    }
    if (reply[0] == 0 && IsWrite(request)) {
        Record(request);
    }
    if (const std::uint16_t length = Load(command.replyLength); length != 0) {
        *replyLength = std::min<unsigned int>(*replyLength, length);
    }
    if (const std::uint32_t time = Load(controller->serviceMicroseconds); time != 0) {
        WaitUntil(start + std::uint64_t{time} * 1000);
    }
    Add(controller->busyNanoseconds, Now() - start);
}

// Console command "harness_done NUMBER": all commands before it have been executed.
int TellDone(emu_out_t* /*out*/, emu_data_t* /*emulator*/, lmc_data_t* /*mc*/, char** words) {
    const char* number = mystrtok(nullptr, " \t\n", words);
    Store(g_state->executedCommand, std::uint64_t{std::strtoull(number != nullptr ? number : "0", nullptr, 10)});
    return 0;
}

// Calls @p action with every LAN channel of every controller.
template <typename Action>
void ForEachLan(Action action) {
    constexpr unsigned char c_lanMedium = 4;
    for (const ControllerState& controller : g_state->controllers) {
        lmc_data_t* mc = controller.address != 0 ? g_system->ipmb_addrs[controller.address] : nullptr;
        channel_t** channels = mc != nullptr ? g_system->mc_get_channelset(mc) : nullptr;
        for (int i = 0; channels != nullptr && i < IPMI_MAX_CHANNELS; ++i) {
            if (channels[i] != nullptr && channels[i]->medium_type == c_lanMedium) {
                action(*static_cast<lanserv_data_t*>(channels[i]->chan_info));
            }
        }
    }
}

// Console command: sessions end as if nobody had used them for long.
int EndSessions(emu_out_t* /*out*/, emu_data_t* /*emulator*/, lmc_data_t* /*mc*/, char** /*words*/) {
    constexpr unsigned int c_long = 1'000'000;  // seconds
    ForEachLan([](lanserv_data_t& lan) { lan.tick_handler.handler(lan.tick_handler.info, c_long); });
    return 0;
}

// Console command.
int CountSessions(emu_out_t* /*out*/, emu_data_t* /*emulator*/, lmc_data_t* /*mc*/, char** /*words*/) {
    std::uint32_t count = 0;
    ForEachLan([&count](const lanserv_data_t& lan) {
        for (const session_t& session : lan.sessions) {
            count += session.active != 0 ? 1 : 0;
        }
    });
    Store(g_state->sessionCount, count);
    return 0;
}

bool MapState(const char* path) {
    const int file = ::open(path, O_RDWR | O_CLOEXEC);
    void* memory = ::mmap(nullptr, sizeof(SimulatorState), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::close(file);
    if (file < 0 || memory == MAP_FAILED) {
        std::fprintf(stderr, "cannot map the state file %s\n", path);
        return false;
    }
    g_state = static_cast<SimulatorState*>(memory);
    return true;
}

bool Wrap(unsigned char netFunction, const char* table) {
    auto** handlers = static_cast<void**>(::dlsym(RTLD_DEFAULT, table));
    if (handlers == nullptr) {
        std::fprintf(stderr, "the simulator has no table %s\n", table);
        return false;
    }
    for (int command = 0; command < 256; ++command) {
        ipmi_emu_register_cmd_handler(netFunction, static_cast<unsigned char>(command), Serve, handlers[command]);
    }
    return true;
}

}  // namespace

int ipmi_sim_module_print_version(sys_data_t* /*sys*/, char* /*options*/) {
    return 0;
}

// The option is the path of the state file.
int ipmi_sim_module_init(sys_data_t* sys, char* options) {
    if (options == nullptr || !MapState(options)) {
        return EINVAL;
    }
    g_system = sys;
    const bool isWrapped = Wrap(c_chassis, "chassis_netfn_handlers") && Wrap(c_sensor, "sensor_event_netfn_handlers") &&
                           Wrap(c_application, "app_netfn_handlers") && Wrap(c_storage, "storage_netfn_handlers") &&
                           Wrap(c_transport, "transport_netfn_handlers");
    if (!isWrapped) {
        return EINVAL;
    }
    for (const unsigned char command : {g_state->fpga.readCommand, g_state->fpga.writeCommand}) {
        ipmi_emu_register_cmd_handler(g_state->fpga.netFunction, command, Serve, nullptr);
    }
    ipmi_emu_add_cmd("harness_done", NOMC, TellDone);
    ipmi_emu_add_cmd("harness_end_sessions", NOMC, EndSessions);
    ipmi_emu_add_cmd("harness_count_sessions", NOMC, CountSessions);
    Store(g_state->hasCipherSuite17, std::uint8_t{test::AddCipherSuite17()});
    // Service times shall be as long as they were said to be.
    ::prctl(PR_SET_TIMERSLACK, 1);
    return 0;
}

#pragma once

#include <gtest/gtest.h>
#include <linux/ipmi.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "bmc/ipmi/ipmi_driver.h"

namespace test {

/// The kernel's side of /dev/ipmi0: takes requests, and has messages ready as the test says. Used by one thread.
class FakeIpmiDriver : public bmc::ipmi::IpmiDriver {
public:
    /// A request as it came through the ioctl.
    struct Sent {
        int addressType = 0;
        int channel = 0;
        int address = 0;  ///< of a bridged request
        int lun = 0;
        long messageId = 0;
        int netFn = 0;
        int command = 0;
        std::vector<std::uint8_t> data{};
        int retries = 0;
        unsigned int retryTime = 0;  ///< ms
    };

    /// A message that is ready to be received.
    struct Message {
        int type = IPMI_RESPONSE_RECV_TYPE;
        long messageId = 0;
        int netFn = 0;
        int command = 0;
        std::vector<std::uint8_t> data{};  ///< completion code first
    };

    std::vector<std::string> opened;
    Sent opening;            ///< the request of the last opening
    std::vector<Sent> sent;  ///< the others
    int openError = 0;       ///< of the next openings
    int sendError = 0;       ///< of the next requests
    int receiveError = 0;    ///< of the next receptions

    /// What happens at each request; Get Device ID of an opening is answered by itself.
    std::function<void(const Sent&)> onRequest = [](const Sent&) {};
    bool answersOpening = true;

    /// Has @p message ready.
    void Put(Message message) {
        m_ready.push_back(std::move(message));
        const std::uint64_t one = 1;
        EXPECT_EQ(::write(m_descriptor, &one, sizeof one), static_cast<ssize_t>(sizeof one));
    }
    /// Answers @p request with a completion code and data.
    void Answer(const Sent& request, std::vector<std::uint8_t> data) {
        Put({.messageId = request.messageId,
             .netFn = request.netFn | 1,
             .command = request.command,
             .data = std::move(data)});
    }

    int Open(const std::string& path) override {
        opened.push_back(path);
        if (openError != 0) {
            return -openError;
        }
        m_ready.clear();
        m_isOpening = true;
        m_descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE);
        return m_descriptor;
    }

    int Control(int descriptor, unsigned long request, void* argument) override {
        EXPECT_EQ(descriptor, m_descriptor);
        switch (request) {
            case IPMICTL_SEND_COMMAND_SETTIME:
                return Send(*static_cast<ipmi_req_settime*>(argument));
            case IPMICTL_RECEIVE_MSG_TRUNC:
                return Receive(*static_cast<ipmi_recv*>(argument));
            default:
                ADD_FAILURE() << "ioctl " << request;
                return -ENOTTY;
        }
    }

private:
    int Send(const ipmi_req_settime& request) {
        if (sendError != 0) {
            return -sendError;
        }
        Sent message{.messageId = request.req.msgid,
                     .netFn = request.req.msg.netfn,
                     .command = request.req.msg.cmd,
                     .data = {request.req.msg.data, request.req.msg.data + request.req.msg.data_len},
                     .retries = request.retries,
                     .retryTime = request.retry_time_ms};
        const auto* const any = reinterpret_cast<const ipmi_addr*>(request.req.addr);
        message.addressType = any->addr_type;
        message.channel = any->channel;
        if (any->addr_type == IPMI_IPMB_ADDR_TYPE) {
            EXPECT_EQ(request.req.addr_len, sizeof(ipmi_ipmb_addr));
            const auto* const bridged = reinterpret_cast<const ipmi_ipmb_addr*>(request.req.addr);
            message.address = bridged->slave_addr;
            message.lun = bridged->lun;
        } else {
            EXPECT_EQ(request.req.addr_len, sizeof(ipmi_system_interface_addr));
            message.lun = reinterpret_cast<const ipmi_system_interface_addr*>(request.req.addr)->lun;
        }
        const bool isOpening = std::exchange(m_isOpening, false);
        if (isOpening) {
            opening = message;
            if (answersOpening) {
                Answer(message, {0x00, 0x20, 0x01});
            }
            return 0;
        }
        sent.push_back(message);
        onRequest(message);
        return 0;
    }

    int Receive(ipmi_recv& place) {
        if (receiveError != 0) {
            return -receiveError;
        }
        std::uint64_t ignored = 0;
        if (::read(m_descriptor, &ignored, sizeof ignored) < 0) {
            return -EAGAIN;
        }
        const Message message = m_ready.front();
        m_ready.pop_front();
        place.recv_type = message.type;
        place.msgid = message.messageId;
        place.msg.netfn = static_cast<unsigned char>(message.netFn);
        place.msg.cmd = static_cast<unsigned char>(message.command);
        const std::size_t size = std::min<std::size_t>(message.data.size(), place.msg.data_len);
        std::copy_n(message.data.begin(), size, place.msg.data);
        const bool isTruncated = size < message.data.size();
        place.msg.data_len = static_cast<unsigned short>(size);
        return isTruncated ? -EMSGSIZE : 0;
    }

    int m_descriptor = -1;
    bool m_isOpening = false;
    std::deque<Message> m_ready;
};

}  // namespace test

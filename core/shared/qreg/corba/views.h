#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "qreg/access.h"

namespace qreg::corba {

/// A list of nodes with numbers that was looked up once. What a node is (whether it is there, its type, whether clients
/// may read it) is as it was then; its value is read each time. Immutable, so safe to read from any thread.
class View {
public:
    View(const Access& access, const std::vector<std::string_view>& paths);

    std::size_t GetSize() const noexcept { return m_entries.size(); }

    /// Reads all of them. @param numbers,states get GetSize() elements each; a number is NaN where the state is not ok
    /// @param isStopping once it is true, what was not read yet is not read any more: its state is stopping
    void Read(double* numbers, std::uint16_t* states, const std::atomic<bool>& isStopping) const noexcept;

private:
    struct Entry {
        const qnode::TreeNode* node = nullptr;
        bool isInteger = false;
        ErrorCode_e state = ErrorCode_e::ok;  ///< unless ok there is nothing to read
    };

    static Entry Look(const Access& access, std::string_view path);
    static ErrorCode_e Read(const Entry& entry, double& number) noexcept;

    std::vector<Entry> m_entries;
};

/// The views of all clients. When there are too many, the one that was not read for longest gives way. Any thread.
class Views {
public:
    static constexpr std::size_t c_most = 64;

    /// @return the id, which is not to be guessed.
    std::string Open(std::shared_ptr<const View> view);

    /// @throws RegistryError no_such_view.
    std::shared_ptr<const View> Find(const std::string& id);

    /// @throws RegistryError no_such_view.
    void Close(const std::string& id);

private:
    struct Held {
        std::shared_ptr<const View> view;
        std::uint64_t used = 0;  ///< grows with every use of any view
    };

    [[noreturn]] static void RaiseNoSuchView(const std::string& id);

    std::mutex m_mutex;  ///< guards all below
    std::unordered_map<std::string, Held> m_views;
    std::uint64_t m_uses = 0;
};

}  // namespace qreg::corba

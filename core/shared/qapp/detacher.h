#pragma once

namespace qapp {

/// Lets a program go on in the background. The process that was started waits until the background one is ready and
/// ends with its status, so that whoever started it learns whether the service runs. For the main thread, before any
/// other thread is there.
class Detacher {
public:
    Detacher() = default;
    Detacher(const Detacher&) = delete;
    Detacher& operator=(const Detacher&) = delete;
    ~Detacher();

    /// Goes on in a new background process, with the standard streams of the old one for now. The old process never
    /// returns: it ends with 0 once Ready was called, with 1 when the new one ended before.
    /// @throws qstd::Exception when the system refuses.
    void Detach();

    /// The service is ready: lets the waiting process go and leaves the standard streams. No effect when not detached.
    void Ready();

private:
    int m_readyPipe = -1;
};

}  // namespace qapp

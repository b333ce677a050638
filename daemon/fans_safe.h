#pragma once

/// Sets every fan of the chassis to maximum speed through the boards of the pool and proves by reading the fan
/// controller's reference registers back that they hold it. For a process that runs because nobody controls the fans
/// any more: whatever one fan's register does, the others are set. Logs that the fans are safe. Any thread.
/// @throws qstd::Exception naming each fan that is not proved to be at maximum speed, and why; or that there is no
///         chassis controller.
void SetFansSafe();

/// Whether @p rpm, read from a reference register, is what that reads as when it holds the maximum speed. One that does
/// never reads slower: register values are cut to whole numbers, and the lower the faster. Any thread.
bool IsMaximumSpeed(double rpm);

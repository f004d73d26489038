#pragma once

#include <cstdint>
#include <functional>
#include <optional>

namespace taskrack {

struct FileLimit
{
    uint64_t soft = 0;
    uint64_t hard = 0;
};

// File watchers hold many descriptors: before anything starts, the soft open-file limit is
// raised to min(10240, hard limit). Failures are logged and otherwise ignored. The system calls
// are injectable so that the rule can be tested; returns the soft limit set, if one was.
struct OpenFileLimit
{
    static constexpr uint64_t target = 10240;

    std::function<std::optional<FileLimit>(int &error)> read;
    std::function<bool(const FileLimit &, int &error)> write;

    static OpenFileLimit system();
    std::optional<uint64_t> raise() const;
};

} // namespace taskrack

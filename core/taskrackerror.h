#pragma once

// Errors that carry a text a person may read, and the cancellation signal that is never a
// failure.

#include <QString>
#include <exception>
#include <stop_token>
#include <string>

namespace taskrack {

class TaskrackError : public std::exception
{
public:
    explicit TaskrackError(QString description);

    // The text shown to a person. Never logged in the clear: it may name files or tasks.
    const QString &description() const { return m_description; }
    const char *what() const noexcept override { return m_utf8.c_str(); }

private:
    QString m_description;
    std::string m_utf8;
};

// Thrown when a task was cancelled. Callers treat it as "nothing happened", never as a failure.
class OperationCancelled : public std::exception
{
public:
    const char *what() const noexcept override { return "operation cancelled"; }
};

inline void throwIfCancelled(const std::stop_token &stop)
{
    if (stop.stop_requested())
        throw OperationCancelled();
}

// The description of whatever an operation threw, for a person to read.
QString describeException(const std::exception_ptr &error);
bool isCancellation(const std::exception_ptr &error);

} // namespace taskrack

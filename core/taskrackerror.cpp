#include "core/taskrackerror.h"

namespace taskrack {

TaskrackError::TaskrackError(QString description)
    : m_description(std::move(description)), m_utf8(m_description.toStdString())
{
}

QString describeException(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const TaskrackError &e) {
        return e.description();
    } catch (const std::exception &e) {
        return QString::fromUtf8(e.what());
    } catch (...) {
        return QStringLiteral("Unknown error");
    }
}

bool isCancellation(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const OperationCancelled &) {
        return true;
    } catch (...) {
        return false;
    }
}

} // namespace taskrack

#include "hookbridge/hookeventposter.h"

#include <dbus/dbus.h>
#include <memory>

namespace taskrack {

namespace {

// Must match the listener's subscription (platform/hookeventtransport.h), which this
// framework-free helper can't include.
constexpr char eventPath[] = "/com/quillon/Taskrack/ClaudeHook";
constexpr char eventInterface[] = "com.quillon.Taskrack.ClaudeHook";
constexpr char eventMember[] = "Event";

constexpr char busName[] = "org.freedesktop.DBus";
constexpr char busPath[] = "/org/freedesktop/DBus";

struct ConnectionCloser
{
    void operator()(DBusConnection *connection) const
    {
        dbus_connection_close(connection);
        dbus_connection_unref(connection);
    }
};
struct MessageUnref
{
    void operator()(DBusMessage *message) const { dbus_message_unref(message); }
};
using Connection = std::unique_ptr<DBusConnection, ConnectionCloser>;
using Message = std::unique_ptr<DBusMessage, MessageUnref>;

bool isBusString(const std::string &text)
{
    return text.find('\0') == std::string::npos && dbus_validate_utf8(text.c_str(), nullptr);
}

bool appendString(DBusMessageIter *iter, const std::string &text)
{
    const char *data = text.c_str();
    return dbus_message_iter_append_basic(iter, DBUS_TYPE_STRING, &data);
}

Message eventSignal(const std::string &token, const std::map<std::string, std::string> &fields)
{
    Message signal(dbus_message_new_signal(eventPath, eventInterface, eventMember));
    if (!signal)
        return nullptr;
    DBusMessageIter arguments;
    DBusMessageIter map;
    dbus_message_iter_init_append(signal.get(), &arguments);
    if (!appendString(&arguments, token) ||
        !dbus_message_iter_open_container(&arguments, DBUS_TYPE_ARRAY, "{ss}", &map))
        return nullptr;
    for (const auto &[key, value] : fields) {
        DBusMessageIter entry;
        if (!dbus_message_iter_open_container(&map, DBUS_TYPE_DICT_ENTRY, nullptr, &entry))
            return nullptr;
        const bool appended = appendString(&entry, key) && appendString(&entry, value);
        if (!dbus_message_iter_close_container(&map, &entry) || !appended)
            return nullptr;
    }
    if (!dbus_message_iter_close_container(&arguments, &map))
        return nullptr;
    return signal;
}

} // namespace

bool postHookEvent(const std::string &busAddress, const std::string &token,
                   const std::map<std::string, std::string> &fields, int timeoutMs)
{
    if (!isBusString(token))
        return false;
    for (const auto &[key, value] : fields) {
        if (!isBusString(key) || !isBusString(value))
            return false;
    }

    DBusError error;
    dbus_error_init(&error);
    Connection connection(dbus_connection_open_private(busAddress.c_str(), &error));
    if (!connection) {
        dbus_error_free(&error);
        return false;
    }
    dbus_connection_set_exit_on_disconnect(connection.get(), FALSE);

    // Hello, the signal and the Ping go out back to back: the bus answers them in order, so a
    // single round trip both registers the connection and confirms the signal was routed.
    Message hello(dbus_message_new_method_call(busName, busPath, busName, "Hello"));
    Message signal = eventSignal(token, fields);
    Message ping(
        dbus_message_new_method_call(busName, busPath, "org.freedesktop.DBus.Peer", "Ping"));
    if (!hello || !signal || !ping ||
        !dbus_connection_send(connection.get(), hello.get(), nullptr) ||
        !dbus_connection_send(connection.get(), signal.get(), nullptr))
        return false;
    Message reply(
        dbus_connection_send_with_reply_and_block(connection.get(), ping.get(), timeoutMs, &error));
    const bool answered = reply != nullptr;
    dbus_error_free(&error);
    return answered;
}

} // namespace taskrack

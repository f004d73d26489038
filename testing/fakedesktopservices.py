#!/usr/bin/python3
"""Stand-ins for the desktop services the tray application talks to, for process tests.

  fakedesktopservices.py logind        owns org.freedesktop.login1 on the bus in
                                        DBUS_SYSTEM_BUS_ADDRESS; stdin "sleep"/"wake" emit
                                        PrepareForSleep(true/false)
  fakedesktopservices.py notifications  owns org.freedesktop.Notifications; prints each Notify
                                        as a JSON line; stdin "invoke ID" emits ActionInvoked
                                        from the owner, "forge ID" from another connection
  fakedesktopservices.py watcher        owns org.kde.StatusNotifierWatcher with a host; prints
                                        each registered item as a JSON line

Prints "ready" once its name is owned. Stops when stdin closes.
"""

import json
import os
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib


def emit(record):
    print(json.dumps(record), flush=True)


class Logind(dbus.service.Object):
    @dbus.service.signal("org.freedesktop.login1.Manager", signature="b")
    def PrepareForSleep(self, start):
        pass


class Notifications(dbus.service.Object):
    def __init__(self, bus, path):
        super().__init__(bus, path)
        self.next_id = 1

    @dbus.service.method("org.freedesktop.Notifications", in_signature="susssasa{sv}i", out_signature="u")
    def Notify(self, app, replaces, icon, summary, body, actions, hints, timeout):
        ident = int(replaces) or self.next_id
        self.next_id += 1
        image = hints.get("image-data")
        emit({"notify": ident, "replaces": int(replaces), "summary": str(summary), "body": str(body),
              "actions": [str(a) for a in actions], "desktop-entry": str(hints.get("desktop-entry", "")),
              "image": [int(image[0]), int(image[1])] if image is not None else None})
        return dbus.UInt32(ident)

    @dbus.service.method("org.freedesktop.Notifications", in_signature="u")
    def CloseNotification(self, ident):
        emit({"close": int(ident)})

    @dbus.service.method("org.freedesktop.Notifications", out_signature="as")
    def GetCapabilities(self):
        return ["actions", "body", "body-markup"]

    @dbus.service.method("org.freedesktop.Notifications", out_signature="ssss")
    def GetServerInformation(self):
        return ("fake", "taskrack-tests", "1", "1.2")

    @dbus.service.signal("org.freedesktop.Notifications", signature="us")
    def ActionInvoked(self, ident, action):
        pass


class Watcher(dbus.service.Object):
    def __init__(self, bus, path):
        super().__init__(bus, path)
        self.items = []

    @dbus.service.method("org.kde.StatusNotifierWatcher", in_signature="s", sender_keyword="sender")
    def RegisterStatusNotifierItem(self, service, sender=None):
        # Qt passes its object path; the item lives on the sender's connection.
        self.items.append(str(service))
        emit({"item": str(service), "sender": str(sender)})
        self.StatusNotifierItemRegistered(service)

    @dbus.service.method("org.kde.StatusNotifierWatcher", in_signature="s")
    def RegisterStatusNotifierHost(self, service):
        pass

    @dbus.service.signal("org.kde.StatusNotifierWatcher", signature="s")
    def StatusNotifierItemRegistered(self, service):
        pass

    # dbus-python leaves properties out of its introspection, and Qt reads the host property
    # through an introspected interface.
    @dbus.service.method(dbus.INTROSPECTABLE_IFACE, out_signature="s")
    def Introspect(self):
        return """<node><interface name="org.kde.StatusNotifierWatcher">
<method name="RegisterStatusNotifierItem"><arg name="service" type="s" direction="in"/></method>
<method name="RegisterStatusNotifierHost"><arg name="service" type="s" direction="in"/></method>
<property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
<property name="ProtocolVersion" type="i" access="read"/>
<property name="RegisteredStatusNotifierItems" type="as" access="read"/>
<signal name="StatusNotifierItemRegistered"><arg type="s"/></signal>
</interface></node>"""

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        return self.GetAll(interface)[name]

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="s", out_signature="a{sv}")
    def GetAll(self, interface):
        return {"IsStatusNotifierHostRegistered": True, "ProtocolVersion": dbus.Int32(0),
                "RegisteredStatusNotifierItems": dbus.Array(self.items, signature="s")}


def main():
    mode = sys.argv[1]
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    loop = GLib.MainLoop()
    if mode == "logind":
        bus = dbus.bus.BusConnection(os.environ["DBUS_SYSTEM_BUS_ADDRESS"])
        name = dbus.service.BusName("org.freedesktop.login1", bus)
        service = Logind(bus, "/org/freedesktop/login1")
    elif mode == "notifications":
        bus = dbus.SessionBus()
        name = dbus.service.BusName("org.freedesktop.Notifications", bus)
        service = Notifications(bus, "/org/freedesktop/Notifications")
        forger_bus = dbus.bus.BusConnection(os.environ["DBUS_SESSION_BUS_ADDRESS"])
        forger = Notifications(forger_bus, "/org/freedesktop/Notifications")
    else:
        bus = dbus.SessionBus()
        name = dbus.service.BusName("org.kde.StatusNotifierWatcher", bus)
        service = Watcher(bus, "/StatusNotifierWatcher")
    assert name

    def command(source, condition):
        line = sys.stdin.readline()
        if not line:
            loop.quit()
            return False
        words = line.split()
        if words == ["sleep"]:
            service.PrepareForSleep(True)
        elif words == ["wake"]:
            service.PrepareForSleep(False)
        elif len(words) == 2 and words[0] == "invoke":
            service.ActionInvoked(dbus.UInt32(int(words[1])), "default")
        elif len(words) == 2 and words[0] == "forge":
            forger.ActionInvoked(dbus.UInt32(int(words[1])), "default")
        emit({"done": line.strip()})
        return True

    GLib.io_add_watch(sys.stdin, GLib.IO_IN | GLib.IO_HUP, command)
    print("ready", flush=True)
    loop.run()


if __name__ == "__main__":
    main()

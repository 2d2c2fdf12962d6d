// SPDX-License-Identifier: MIT
#include <gio/gio.h>

#include <cstdio>
#include <cstdlib>
#include <string>

/// Has polkit's place on the bus, and answers every check of a process as a test says:
/// PolicyStandIn ANSWER, which is the answer's body in GVariant's text form, "error" or "silence".
/// Prints "ready" when it has the place, and "asked" whenever it is asked. Runs as polkit's user.
namespace {

std::string answer;

[[noreturn]] void fail(const char* what, const GError* error) {
    std::fprintf(stderr, "PolicyStandIn: %s: %s\n", what, error ? error->message : "?");
    std::exit(1);
}

void say(const char* what) {
    std::puts(what);
    std::fflush(stdout);
}

GDBusMessage* answerTo(GDBusMessage* question) {
    if (answer == "error")
        return g_dbus_message_new_method_error(question, "org.freedesktop.PolicyKit1.Error.Failed",
                                               "no");
    GError* error = nullptr;
    GVariant* const body = g_variant_parse(nullptr, answer.c_str(), nullptr, nullptr, &error);
    if (!body)
        fail("the answer", error);
    GDBusMessage* const message = g_dbus_message_new_method_reply(question);
    g_dbus_message_set_body(message, body);
    g_variant_unref(body);
    return message;
}

GDBusMessage* filter(GDBusConnection* bus, GDBusMessage* message, gboolean incoming, gpointer) {
    if (!incoming || g_strcmp0(g_dbus_message_get_member(message), "CheckAuthorization") != 0)
        return message;
    if (answer != "silence") {
        GDBusMessage* const reply = answerTo(message);
        g_dbus_connection_send_message(bus, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                       nullptr);
        g_object_unref(reply);
    }
    say("asked");
    g_object_unref(message);
    return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    answer = argv[1];
    GError* error = nullptr;
    GDBusConnection* const bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (!bus)
        fail("no bus", error);
    g_dbus_connection_add_filter(bus, filter, nullptr, nullptr);
    GVariant* const reply = g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/", "org.freedesktop.DBus", "RequestName",
        g_variant_new("(su)", "org.freedesktop.PolicyKit1", 0U), G_VARIANT_TYPE("(u)"),
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    guint32 code = 0;
    if (reply)
        g_variant_get(reply, "(u)", &code);
    if (code != 1)
        fail("the name", error);
    say("ready");
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

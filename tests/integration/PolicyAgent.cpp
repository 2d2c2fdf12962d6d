// SPDX-License-Identifier: MIT
#include <gio/gio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

/// An authentication agent for one process, or for the login session that it runs in itself,
/// driven by a test: PolicyAgent PID|session:ID ANSWER, which is allow, deny, cancel, hang, or
/// leave (allow, and be gone); ACTION=ANSWER,... in front are the answers for single actions.
/// Prints "ready" when it is registered, and every prompt that it is given. Runs as root.
namespace {

constexpr const char* authority = "org.freedesktop.PolicyKit1";
constexpr const char* authorityPath = "/org/freedesktop/PolicyKit1/Authority";
constexpr const char* authorityInterface = "org.freedesktop.PolicyKit1.Authority";
constexpr const char* agentPath = "/io/github/morvaneoperation/test/Agent";
constexpr const char* agentInterface =
    "<node><interface name='org.freedesktop.PolicyKit1.AuthenticationAgent'>"
    "<method name='BeginAuthentication'><arg type='s' direction='in'/><arg type='s' "
    "direction='in'/>"
    "<arg type='s' direction='in'/><arg type='a{ss}' direction='in'/><arg type='s' direction='in'/>"
    "<arg type='a(sa{sv})' direction='in'/></method>"
    "<method name='CancelAuthentication'><arg type='s' direction='in'/></method>"
    "</interface></node>";

std::string answers;
bool leaves = false;

std::string answerFor(const std::string& action) {
    const auto at = answers.find(action + "=");
    const auto begin = at != std::string::npos ? at + action.size() + 1 : answers.rfind(',') + 1;
    return answers.substr(begin, answers.find(',', begin) - begin);
}

[[noreturn]] void fail(const char* what, GError* error) {
    std::fprintf(stderr, "PolicyAgent: %s: %s\n", what, error ? error->message : "?");
    std::exit(1);
}

guint64 startTime(const std::string& pid) {
    std::ifstream file("/proc/" + pid + "/stat");
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    auto at = text.rfind(')');
    for (int i = 0; i != 20; ++i)
        at = text.find(' ', at + 1);
    return std::strtoull(text.c_str() + at + 1, nullptr, 10);
}

GVariant* subjectNamed(const std::string& name) {
    GVariantBuilder details;
    g_variant_builder_init(&details, G_VARIANT_TYPE("a{sv}"));
    const std::string session = "session:";
    if (name.rfind(session, 0) == 0) {
        g_variant_builder_add(&details, "{sv}", "session-id",
                              g_variant_new_string(name.c_str() + session.size()));
        return g_variant_new("(sa{sv})", "unix-session", &details);
    }
    struct stat status {};
    if (stat(("/proc/" + name).c_str(), &status) != 0)
        fail("no such process", nullptr);
    g_variant_builder_add(&details, "{sv}", "pid",
                          g_variant_new_uint32(static_cast<guint32>(std::stoul(name))));
    g_variant_builder_add(&details, "{sv}", "start-time", g_variant_new_uint64(startTime(name)));
    g_variant_builder_add(&details, "{sv}", "uid",
                          g_variant_new_int32(static_cast<gint32>(status.st_uid)));
    return g_variant_new("(sa{sv})", "unix-process", &details);
}

void answered(GObject* bus, GAsyncResult* result, gpointer invocation) {
    GError* error = nullptr;
    GVariant* const reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, &error);
    if (reply)
        g_variant_unref(reply);
    g_dbus_method_invocation_return_value(G_DBUS_METHOD_INVOCATION(invocation), nullptr);
    if (leaves) {
        g_dbus_connection_flush_sync(G_DBUS_CONNECTION(bus), nullptr, nullptr);
        std::exit(0);
    }
}

void called(GDBusConnection* bus, const char*, const char*, const char*, const char* method,
            GVariant* arguments, GDBusMethodInvocation* invocation, gpointer) {
    if (std::strcmp(method, "BeginAuthentication") != 0) {
        g_dbus_method_invocation_return_value(invocation, nullptr);
        return;
    }
    const char* action = nullptr;
    const char* message = nullptr;
    const char* cookie = nullptr;
    g_variant_get_child(arguments, 0, "&s", &action);
    g_variant_get_child(arguments, 1, "&s", &message);
    g_variant_get_child(arguments, 4, "&s", &cookie);
    std::printf("%s: %s\n", action, message);
    std::fflush(stdout);
    const auto answer = answerFor(action);
    if (answer == "hang")
        return;
    leaves = answer == "leave";
    if (answer == "cancel") {
        g_dbus_method_invocation_return_dbus_error(
            invocation, "org.freedesktop.PolicyKit1.Error.Cancelled", "closed");
    } else if (answer == "deny") {
        g_dbus_method_invocation_return_value(invocation, nullptr);
    } else {
        GVariant* const identities = g_variant_get_child_value(arguments, 5);
        GVariant* const identity = g_variant_get_child_value(identities, 0);
        g_dbus_connection_call(bus, authority, authorityPath, authorityInterface,
                               "AuthenticationAgentResponse2",
                               g_variant_new("(us@(sa{sv}))", getuid(), cookie, identity), nullptr,
                               G_DBUS_CALL_FLAGS_NONE, -1, nullptr, answered, invocation);
        g_variant_unref(identity);
        g_variant_unref(identities);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    GVariant* const subject = subjectNamed(argv[1]);
    answers = argv[2];
    GError* error = nullptr;
    GDBusConnection* const bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (!bus)
        fail("no bus", error);
    GDBusNodeInfo* const node = g_dbus_node_info_new_for_xml(agentInterface, &error);
    if (!node)
        fail("interface", error);
    static const GDBusInterfaceVTable table{called, nullptr, nullptr, {}};
    if (g_dbus_connection_register_object(bus, agentPath, node->interfaces[0], &table, nullptr,
                                          nullptr, &error) == 0)
        fail("object", error);
    GVariant* const reply = g_dbus_connection_call_sync(
        bus, authority, authorityPath, authorityInterface, "RegisterAuthenticationAgent",
        g_variant_new("(@(sa{sv})ss)", subject, "C", agentPath), nullptr, G_DBUS_CALL_FLAGS_NONE,
        -1, nullptr, &error);
    if (!reply)
        fail("registration", error);
    g_variant_unref(reply);
    std::puts("ready");
    std::fflush(stdout);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

#include <MorvaneOperation/platform/linux/GrantAges.h>
#include <MorvaneOperation/platform/linux/PolicyAuthority.h>
#include <gio/gio.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <utility>

namespace morvane {
namespace {

constexpr const char* busName = "org.freedesktop.PolicyKit1";
constexpr const char* objectPath = "/org/freedesktop/PolicyKit1/Authority";
constexpr const char* interfaceName = "org.freedesktop.PolicyKit1.Authority";
constexpr std::uint32_t allowUserInteraction = 1;
/// polkit may stop for fifteen seconds and then answer rightly.
constexpr int answerMilliseconds = 60000;
/// A person takes as long as a person takes.
constexpr int withoutLimit = G_MAXINT;

struct VariantUnref {
    void operator()(GVariant* variant) const { g_variant_unref(variant); }
};
using Variant = std::unique_ptr<GVariant, VariantUnref>;

struct ObjectUnref {
    void operator()(void* object) const { g_object_unref(object); }
};

/// Takes `arguments`. Null on failure. `answerer`, if not null, is set to the name that the bus has
/// given to who answers.
Variant call(const char* method, GVariant* arguments, const char* replyType, int milliseconds,
             std::string* answerer = nullptr) {
    const Variant held(g_variant_ref_sink(arguments));
    const std::unique_ptr<GDBusConnection, ObjectUnref> bus(
        g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
    if (!bus)
        return nullptr;
    // The library's default is to end the process together with the bus.
    g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
    const std::unique_ptr<GDBusMessage, ObjectUnref> message(
        g_dbus_message_new_method_call(busName, objectPath, interfaceName, method));
    g_dbus_message_set_body(message.get(), held.get());
    const std::unique_ptr<GDBusMessage, ObjectUnref> answer(
        g_dbus_connection_send_message_with_reply_sync(bus.get(), message.get(),
                                                       G_DBUS_SEND_MESSAGE_FLAGS_NONE, milliseconds,
                                                       nullptr, nullptr, nullptr));
    if (!answer ||
        g_dbus_message_get_message_type(answer.get()) != G_DBUS_MESSAGE_TYPE_METHOD_RETURN)
        return nullptr;
    // An answer that says nothing has no body.
    GVariant* const body = g_dbus_message_get_body(answer.get());
    Variant value(body ? g_variant_ref(body) : g_variant_ref_sink(g_variant_new("()")));
    if (!g_variant_is_of_type(value.get(), G_VARIANT_TYPE(replyType)))
        return nullptr;
    if (const char* const sender = g_dbus_message_get_sender(answer.get()); sender && answerer)
        *answerer = sender;
    return value;
}

/// A "unix-process" subject. Of a process that is not known for sure, none.
GVariant* subjectOf(const ProcessIdentity& process) {
    GVariantBuilder details;
    g_variant_builder_init(&details, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(
        &details, "{sv}", "pid",
        g_variant_new_uint32(static_cast<std::uint32_t>(process.processIdentifier)));
    g_variant_builder_add(&details, "{sv}", "start-time", g_variant_new_uint64(process.startTime));
    // Signed, as polkit declares it.
    g_variant_builder_add(&details, "{sv}", "uid",
                          g_variant_new_int32(static_cast<std::int32_t>(process.userIdentifier)));
    return g_variant_new("(sa{sv})", "unix-process", &details);
}

/// In the folder that the service manager keeps for a service while the system runs; empty outside
/// of one.
std::string fileOfGrants() {
    const char* const folder = std::getenv("RUNTIME_DIRECTORY");
    return folder ? std::string(folder) + "/grants" : std::string();
}

}  // namespace

std::uint64_t startTimeOfProcess(std::int64_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat", std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    // The second field is the program's name in brackets, which may hold blanks and brackets.
    auto at = text.rfind(')');
    constexpr int fieldsBetween = 20;
    for (int i = 0; i != fieldsBetween && at != text.npos; ++i)
        at = text.find(' ', at + 1);
    return at == text.npos ? 0 : std::strtoull(text.c_str() + at + 1, nullptr, 10);
}

ProcessIdentity ownProcess() {
    const auto pid = getpid();
    return {pid, startTimeOfProcess(pid), getuid()};
}

std::optional<PolicyAnswer> checkAuthorization(const ProcessIdentity& process,
                                               const std::string& action, bool mayAsk) {
    if (process.processIdentifier <= 0 || process.startTime == 0 || process.userIdentifier < 0)
        return std::nullopt;
    std::string authority;
    const auto reply =
        call("CheckAuthorization",
             g_variant_new("(@(sa{sv})s@a{ss}us)", subjectOf(process), action.c_str(),
                           g_variant_new_array(G_VARIANT_TYPE("{ss}"), nullptr, 0),
                           mayAsk ? allowUserInteraction : 0, ""),
             "((bba{ss}))", mayAsk ? withoutLimit : answerMilliseconds, &authority);
    if (!reply)
        return std::nullopt;
    gboolean authorized = FALSE;
    gboolean challenge = FALSE;
    GVariant* details = nullptr;
    g_variant_get(reply.get(), "((bb@a{ss}))", &authorized, &challenge, &details);
    const Variant held(details);
    if (authorized != FALSE && challenge != FALSE)
        return std::nullopt;  // yes and no
    PolicyAnswer answer{authorized != FALSE, challenge != FALSE, false, {}};
    const char* value = nullptr;
    answer.isDismissed =
        g_variant_lookup(details, "polkit.dismissed", "&s", &value) && *value != '\0';
    if (g_variant_lookup(details, "polkit.temporary_authorization_id", "&s", &value))
        answer.grant = {std::move(authority), value};
    return answer;
}

std::optional<bool> isActionDefined(const std::string& action) {
    const auto reply = call("EnumerateActions", g_variant_new("(s)", ""), "(a(ssssssuuua{ss}))",
                            answerMilliseconds);
    if (!reply)
        return std::nullopt;
    const Variant actions(g_variant_get_child_value(reply.get(), 0));
    for (gsize i = 0; i != g_variant_n_children(actions.get()); ++i) {
        const Variant one(g_variant_get_child_value(actions.get(), i));
        const Variant id(g_variant_get_child_value(one.get(), 0));
        if (action == g_variant_get_string(id.get(), nullptr))
            return true;
    }
    return false;
}

bool revokeTemporaryAuthorization(const PolicyGrant& grant) {
    return call("RevokeTemporaryAuthorizationById", g_variant_new("(s)", grant.id.c_str()), "()",
                answerMilliseconds) != nullptr;
}

RightState rightOfProcess(const ProcessIdentity& process, const std::string& right) {
    static GrantAges ages(fileOfGrants());
    const auto answer = checkAuthorization(process, right, false);
    if (!answer || !answer->isAuthorized)
        return RightState::notHeld;
    return ages.isExpired(answer->grant) ? RightState::expired : RightState::held;
}

}  // namespace morvane

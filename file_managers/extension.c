// SPDX-License-Identifier: MIT
// The item "Permissions…" in the context menu of a file manager that takes such items from
// extensions. The interfaces of these file managers differ in little more than their names: this
// file is compiled for each of them.

#include <gio/gio.h>
#include <glib/gi18n-lib.h>
#include <gmodule.h>

#if defined(FOR_CAJA)
#include <libcaja-extension/caja-extension-types.h>
#include <libcaja-extension/caja-file-info.h>
#include <libcaja-extension/caja-menu-provider.h>
#define HOST(name) caja_##name
#define MODULE(name) caja_module_##name
#define MENU_PROVIDER CAJA_TYPE_MENU_PROVIDER
typedef GTypeModule Module;
typedef CajaMenuProvider Provider;
typedef CajaMenuProviderIface ProviderInterface;
#elif defined(FOR_NAUTILUS)
#include <nautilus-extension.h>
#define HOST(name) nautilus_##name
#define MODULE(name) nautilus_module_##name
#define MENU_PROVIDER NAUTILUS_TYPE_MENU_PROVIDER
typedef GTypeModule Module;
typedef NautilusMenuProvider Provider;
typedef NautilusMenuProviderInterface ProviderInterface;
#elif defined(FOR_NEMO)
#include <libnemo-extension/nemo-extension-types.h>
#include <libnemo-extension/nemo-file-info.h>
#include <libnemo-extension/nemo-menu-provider.h>
#define HOST(name) nemo_##name
#define MODULE(name) nemo_module_##name
#define MENU_PROVIDER NEMO_TYPE_MENU_PROVIDER
typedef GTypeModule Module;
typedef NemoMenuProvider Provider;
typedef NemoMenuProviderIface ProviderInterface;
#elif defined(FOR_THUNAR)
#include <thunarx/thunarx.h>
#define HOST(name) thunarx_##name
#define MODULE(name) thunar_extension_##name
#define MENU_PROVIDER THUNARX_TYPE_MENU_PROVIDER
typedef ThunarxProviderPlugin Module;
typedef ThunarxMenuProvider Provider;
typedef ThunarxMenuProviderIface ProviderInterface;
#endif

#define PROGRAM "morvane-permissions"

typedef struct {
    GObject parent;
} PermissionsMenu;

typedef struct {
    GObjectClass parent;
} PermissionsMenuClass;

static void offer_items(ProviderInterface* provider);

// The module is never unloaded, so its type can be one that stays.
G_DEFINE_TYPE_WITH_CODE(PermissionsMenu, permissions_menu, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(MENU_PROVIDER, offer_items))

static void permissions_menu_class_init(PermissionsMenuClass* klass) {
    (void)klass;
}

static void permissions_menu_init(PermissionsMenu* menu) {
    (void)menu;
}

static void open_window(gpointer item, gpointer command) {
    (void)item;
    g_autoptr(GError) error = NULL;
    if (!g_spawn_async(NULL, command, NULL, G_SPAWN_SEARCH_PATH, NULL, NULL, NULL, &error))
        g_warning("%s", error->message);
}

static void free_command(gpointer command, GClosure* closure) {
    (void)closure;
    g_strfreev(command);
}

// The command with the paths of all items behind it, or nothing if one of them is not in a file
// system of this machine.
static char** command_for(GList* files) {
    g_autoptr(GStrvBuilder) command = g_strv_builder_new();
    g_strv_builder_add(command, PROGRAM);
    for (GList* file = files; file; file = file->next) {
        g_autoptr(GFile) location = HOST(file_info_get_location)(file->data);
        g_autofree char* path = g_file_is_native(location) ? g_file_get_path(location) : NULL;
        if (!path)
            return NULL;
        g_strv_builder_add(command, path);
    }
    return g_strv_builder_end(command);
}

static GList* items_for(GList* files) {
    char** command = command_for(files);
    if (!command)
        return NULL;
    gpointer item = HOST(menu_item_new)("MorvaneOperation::Permissions", _("Permissions…"),
                                        _("Show and change who may do what"),
                                        "io.github.morvaneoperation.Permissions");
    g_signal_connect_data(item, "activate", G_CALLBACK(open_window), command, free_command, 0);
    return g_list_prepend(NULL, item);
}

#if defined(FOR_NAUTILUS)
static GList* file_items(Provider* provider, GList* files) {
#else
static GList* file_items(Provider* provider, GtkWidget* window, GList* files) {
    (void)window;
#endif
    (void)provider;
    return items_for(files);
}

static void offer_items(ProviderInterface* provider) {
#if defined(FOR_THUNAR)
    provider->get_file_menu_items = file_items;
#else
    provider->get_file_items = file_items;
#endif
}

G_MODULE_EXPORT void MODULE(initialize)(Module* module);
G_MODULE_EXPORT void MODULE(shutdown)(void);
G_MODULE_EXPORT void MODULE(list_types)(const GType** types, int* count);

void MODULE(initialize)(Module* module) {
    (void)module;
    bindtextdomain(GETTEXT_PACKAGE, LOCALE_FOLDER);
    bind_textdomain_codeset(GETTEXT_PACKAGE, "UTF-8");
}

void MODULE(shutdown)(void) {}

void MODULE(list_types)(const GType** types, int* count) {
    static GType offered[1];
    offered[0] = permissions_menu_get_type();
    *types = offered;
    *count = G_N_ELEMENTS(offered);
}

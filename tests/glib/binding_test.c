/* SPDX-License-Identifier: MIT */
#define _GNU_SOURCE /* RTLD_NEXT */
/* The binding from C, with the file service of MORVANE_LIBEXEC_DIR. With the argument --asking that
   is one which asks its client whether to go on for as long as it is told to. */
#include <dlfcn.h>
#include <glib/gstdio.h>
#include <morvane/morvane.h>
#include <pwd.h>
#include <string.h>

typedef struct {
    GMainContext* context;
    GAsyncResult* result;
    GThread* thread;
} Awaited;

static void come(GObject* source, GAsyncResult* result, gpointer data) {
    Awaited* const awaited = data;
    g_assert_true(MORVANE_IS_FILE_CLIENT(source));
    g_assert_null(awaited->result);
    awaited->result = g_object_ref(result);
    awaited->thread = g_thread_self();
}

/* The result of the operation whose callback got @awaited. */
static GAsyncResult* wait_for(Awaited* awaited) {
    g_assert_null(awaited->result); /* inside the call */
    while (!awaited->result)
        g_main_context_iteration(awaited->context, TRUE);
    return g_steal_pointer(&awaited->result);
}

typedef struct {
    MorvaneFileClient* client;
    char* folder;
    GFile* file;
} Fixture;

static char* run(const char* const* command) {
    g_autofree char* out = NULL;
    g_autoptr(GError) error = NULL;
    g_spawn_sync(NULL, (char**)command, NULL, G_SPAWN_SEARCH_PATH, NULL, NULL, &out, NULL, NULL,
                 &error);
    g_assert_no_error(error);
    return g_steal_pointer(&out);
}

static void set_up(Fixture* fixture, gconstpointer data) {
    (void)data;
    g_autoptr(GError) error = NULL;
    fixture->client = morvane_file_client_new();
    fixture->folder = g_dir_make_tmp("binding-XXXXXX", &error);
    g_assert_no_error(error);
    g_autofree char* path = g_build_filename(fixture->folder, "file", NULL);
    g_file_set_contents(path, "text", 4, &error);
    g_assert_no_error(error);
    g_assert_cmpint(g_chmod(path, 0640), ==, 0);
    fixture->file = g_file_new_for_path(path);
}

static void tear_down(Fixture* fixture, gconstpointer data) {
    (void)data;
    const char* const remove[] = {"rm", "-rf", fixture->folder, NULL};
    g_free(run(remove));
    g_object_unref(fixture->file);
    g_free(fixture->folder);
    g_object_unref(fixture->client);
}

static char* getfacl(GFile* file) {
    const char* const command[] = {"getfacl", "-cp", g_file_peek_path(file), NULL};
    return run(command);
}

static MorvaneAcl* read_acl(Fixture* fixture, GFile* file) {
    g_autoptr(GError) error = NULL;
    Awaited awaited = {0};
    morvane_file_client_read_acl_async(fixture->client, file, MORVANE_PRIVILEGE_NEVER, NULL, come,
                                       &awaited);
    g_autoptr(GAsyncResult) result = wait_for(&awaited);
    MorvaneAcl* const acl = morvane_file_client_read_acl_finish(fixture->client, result, &error);
    g_assert_no_error(error);
    return acl;
}

static gboolean write_acl(Fixture* fixture, MorvaneAcl* acl, GError** error) {
    Awaited awaited = {0};
    morvane_file_client_write_acl_async(fixture->client, acl, MORVANE_PRIVILEGE_NEVER, NULL, come,
                                        &awaited);
    g_autoptr(GAsyncResult) result = wait_for(&awaited);
    return morvane_file_client_write_acl_finish(fixture->client, result, error);
}

static MorvaneAclEntry* entry_at(MorvaneAcl* acl, guint position) {
    g_autoptr(MorvaneAclEntry) entry = g_list_model_get_item(G_LIST_MODEL(acl), position);
    return entry; /* the list keeps it */
}

static MorvanePermission* box_at(MorvaneAclEntry* entry, guint group, int box) {
    g_autoptr(MorvanePermission) node =
        g_list_model_get_item(morvane_acl_entry_get_permissions(entry), group);
    if (box < 0)
        return node;
    g_autoptr(MorvanePermission) child =
        g_list_model_get_item(morvane_permission_get_children(node), (guint)box);
    return child;
}

static void what_is_edited_is_saved(Fixture* fixture, gconstpointer data) {
    (void)data;
    g_autoptr(GError) error = NULL;
    g_autoptr(MorvaneAcl) acl = read_acl(fixture, fixture->file);
    g_assert_cmpuint(g_list_model_get_n_items(G_LIST_MODEL(acl)), ==, 3);
    g_assert_true(g_list_model_get_item_type(G_LIST_MODEL(acl)) == MORVANE_TYPE_ACL_ENTRY);
    g_assert_true(g_file_equal(morvane_acl_get_file(acl), fixture->file));
    g_assert_false(morvane_acl_is_folder(acl));
    g_assert_false(morvane_acl_get_modified(acl));
    g_assert_null(g_list_model_get_item(G_LIST_MODEL(acl), 3));

    g_autoptr(MorvaneIdentity) daemon = morvane_identity_new_for_user(1);
    g_autoptr(MorvaneAclEntry) entry = morvane_acl_add(acl, daemon);
    g_autofree char* who = morvane_acl_entry_dup_who(entry);
    g_assert_cmpstr(who, ==, "user daemon");
    morvane_acl_entry_set_permission_group(entry, MORVANE_PERMISSION_GROUP_READ);
    g_assert_true(morvane_acl_get_modified(acl));
    g_assert_true(write_acl(fixture, acl, &error));
    g_assert_no_error(error);
    g_assert_false(morvane_acl_get_modified(acl));
    g_autofree char* list = getfacl(fixture->file);
    g_assert_nonnull(strstr(list, "user:daemon:r--\n"));

    g_autoptr(MorvaneAcl) now = read_acl(fixture, fixture->file);
    g_assert_false(morvane_acl_is_current(acl, now));
    g_autoptr(MorvaneAcl) again = read_acl(fixture, fixture->file);
    g_assert_true(morvane_acl_is_current(now, again));
    /* What was made of the former list does not replace what is there now. */
    g_assert_false(write_acl(fixture, acl, &error));
    g_assert_error(error, MORVANE_ERROR, MORVANE_ERROR_CHANGED);
}

static GMutex directory;
static GCond directory_answers;
static gboolean directory_is_slow; /* does not answer for as long as that */

/* What the library finds instead of the system's, on any thread. */
int getpwuid_r(uid_t uid, struct passwd* entry, char* buffer, size_t size, struct passwd** found) {
    int (*system)(uid_t, struct passwd*, char*, size_t, struct passwd**) = NULL;
    *(void**)&system = dlsym(RTLD_NEXT, "getpwuid_r");
    g_mutex_lock(&directory);
    while (directory_is_slow)
        g_cond_wait(&directory_answers, &directory);
    g_mutex_unlock(&directory);
    return system(uid, entry, buffer, size, found);
}

static void set_directory_slow(gboolean slow) {
    g_mutex_lock(&directory);
    directory_is_slow = slow;
    g_cond_broadcast(&directory_answers);
    g_mutex_unlock(&directory);
}

static void count_call(int* count) {
    ++*count;
}

static void a_list_may_come_before_the_names_in_it(Fixture* fixture, gconstpointer data) {
    (void)data;
    const char* const give[] = {"setfacl", "-m", "u:2:r", g_file_peek_path(fixture->file), NULL};
    g_free(run(give));
    g_assert_false(morvane_file_client_get_names_later(fixture->client));
    int set = 0;
    g_signal_connect_swapped(fixture->client, "notify::names-later", G_CALLBACK(count_call), &set);
    morvane_file_client_set_names_later(fixture->client, TRUE);
    morvane_file_client_set_names_later(fixture->client, TRUE);
    g_assert_cmpint(set, ==, 1);
    set_directory_slow(TRUE);
    g_autoptr(MorvaneAcl) acl = read_acl(fixture, fixture->file);
    MorvaneAclEntry* const entry = entry_at(acl, 1);
    g_autofree char* number = morvane_acl_entry_dup_who(entry);
    g_assert_cmpstr(number, ==, "uid 2");
    g_assert_null(morvane_acl_entry_dup_identity(entry));
    int found = 0;
    int changed = 0;
    g_signal_connect_swapped(entry, "notify::who", G_CALLBACK(count_call), &found);
    g_signal_connect_swapped(acl, "changed", G_CALLBACK(count_call), &changed);
    set_directory_slow(FALSE);
    while (!found)
        g_main_context_iteration(NULL, TRUE);
    g_autofree char* name = morvane_acl_entry_dup_who(entry);
    g_assert_cmpstr(name, ==, "user bin");
    g_assert_cmpint(changed, ==, 0);
    g_assert_false(morvane_acl_get_modified(acl));

    g_autoptr(MorvaneIdentity) daemon = morvane_identity_new_for_user(1);
    morvane_acl_entry_set_identity(entry, daemon);
    g_assert_cmpint(found, ==, 2);
    g_assert_cmpint(changed, >, 0);
    g_assert_true(morvane_acl_get_modified(acl));
}

static void only_the_box_for_execution_asks_for_execution(Fixture* fixture, gconstpointer data) {
    (void)data;
    g_autoptr(MorvaneAcl) acl = read_acl(fixture, fixture->file);
    g_autoptr(MorvaneIdentity) daemon = morvane_identity_new_for_user(1);
    g_autoptr(MorvaneAclEntry) entry = morvane_acl_add(acl, daemon);
    morvane_acl_entry_set_permission_group(entry, MORVANE_PERMISSION_GROUP_READ);
    MorvanePermission* const execute = box_at(entry, 0, 1);
    g_autofree char* name = morvane_permission_dup_name(execute);
    g_assert_cmpstr(name, ==, "Execute File");
    morvane_permission_toggle(execute);
    g_assert_cmpint(morvane_permission_get_state(execute), ==, MORVANE_STATE_OFF);
    morvane_permission_toggle(execute);
    g_assert_true(write_acl(fixture, acl, NULL));
    g_autofree char* list = getfacl(fixture->file);
    g_assert_nonnull(strstr(list, "user:daemon:r-x\n"));
}

/* The list of @fixture with an entry that reads, executes as its own box says, and writes. */
static MorvaneAcl* executing(Fixture* fixture, MorvaneAclEntry** entry) {
    g_autoptr(MorvaneIdentity) daemon = morvane_identity_new_for_user(1);
    MorvaneAcl* const acl = read_acl(fixture, fixture->file);
    *entry = morvane_acl_add(acl, daemon);
    g_autofree char* before = morvane_acl_entry_dup_letters(*entry);
    g_assert_cmpstr(before, ==, "rw-");
    morvane_acl_entry_set_permission_group(*entry, MORVANE_PERMISSION_GROUP_READ);
    morvane_permission_toggle(box_at(*entry, 0, 1));
    morvane_permission_toggle(box_at(*entry, 0, 1));
    g_autofree char* after = morvane_acl_entry_dup_letters(*entry);
    g_assert_cmpstr(after, ==, "r-x");
    return acl;
}

static void another_group_does_not_take_execution_back(Fixture* fixture, gconstpointer data) {
    (void)data;
    g_autoptr(MorvaneAclEntry) entry = NULL;
    g_autoptr(MorvaneAcl) acl = executing(fixture, &entry);
    morvane_permission_toggle(box_at(entry, 1, -1));
    g_autofree char* letters = morvane_acl_entry_dup_letters(entry);
    g_assert_cmpstr(letters, ==, "rwx");
    g_assert_true(write_acl(fixture, acl, NULL));
    g_autofree char* list = getfacl(fixture->file);
    g_assert_nonnull(strstr(list, "user:daemon:rwx\n"));
}

static void the_nearest_list_stores_what_it_shows(Fixture* fixture, gconstpointer data) {
    (void)data;
    g_autoptr(MorvaneAclEntry) entry = NULL;
    g_autoptr(MorvaneAcl) acl = executing(fixture, &entry);
    morvane_permission_toggle(box_at(entry, 1, 0));
    Awaited awaited = {0};
    g_autoptr(MorvaneAcl) nearest = NULL;
    morvane_file_client_list_losses_async(fixture->client, acl, NULL, come, &awaited);
    g_autoptr(GAsyncResult) result = wait_for(&awaited);
    g_autoptr(GListModel) losses =
        morvane_file_client_list_losses_finish(fixture->client, result, &nearest, NULL);
    g_assert_cmpuint(g_list_model_get_n_items(losses), ==, 1);
    g_assert_true(morvane_acl_get_modified(nearest));
    g_autofree char* letters = morvane_acl_entry_dup_letters(entry_at(nearest, 1));
    g_assert_cmpstr(letters, ==, "r-x");
    g_assert_true(write_acl(fixture, nearest, NULL));
    g_autofree char* list = getfacl(fixture->file);
    g_assert_nonnull(strstr(list, "user:daemon:r-x\n"));
}

static void choose_read(MorvaneAclEntry* entry, GParamSpec* property, gpointer data) {
    (void)property;
    (void)data;
    morvane_acl_entry_set_permission_group(entry, MORVANE_PERMISSION_GROUP_READ);
}

static void a_handler_may_edit_on_and_what_is_shown_is_stored(Fixture* fixture,
                                                              gconstpointer data) {
    (void)data;
    g_autoptr(MorvaneAcl) acl = read_acl(fixture, fixture->file);
    g_autoptr(MorvaneIdentity) daemon = morvane_identity_new_for_user(1);
    g_autoptr(MorvaneAclEntry) entry = morvane_acl_add(acl, daemon);
    g_signal_connect(entry, "notify::permission-group", G_CALLBACK(choose_read), NULL);
    morvane_permission_toggle(box_at(entry, 1, 0));
    g_assert_cmpint(morvane_acl_entry_get_permission_group(entry), ==,
                    MORVANE_PERMISSION_GROUP_READ);
    g_assert_cmpint(morvane_permission_get_state(box_at(entry, 1, -1)), ==, MORVANE_STATE_OFF);
    g_assert_true(write_acl(fixture, acl, NULL));
    g_autofree char* list = getfacl(fixture->file);
    g_assert_nonnull(strstr(list, "user:daemon:r--\n"));
}

static void what_is_edited_during_a_write_is_still_to_be_saved(Fixture* fixture,
                                                               gconstpointer data) {
    (void)data;
    g_autoptr(MorvaneAcl) acl = read_acl(fixture, fixture->file);
    morvane_acl_entry_set_permission_group(entry_at(acl, 2), MORVANE_PERMISSION_GROUP_READ);
    Awaited awaited = {0};
    morvane_file_client_write_acl_async(fixture->client, acl, MORVANE_PRIVILEGE_NEVER, NULL, come,
                                        &awaited);
    morvane_acl_entry_set_permission_group(entry_at(acl, 2), MORVANE_PERMISSION_GROUP_NONE);
    g_autoptr(GAsyncResult) result = wait_for(&awaited);
    g_assert_true(morvane_file_client_write_acl_finish(fixture->client, result, NULL));
    g_assert_true(morvane_acl_get_modified(acl));
}

static void count(gpointer object, gpointer property, gpointer data) {
    (void)object;
    (void)property;
    ++*(int*)data;
}

static void count_signal(gpointer object, gpointer data) {
    (void)object;
    ++*(int*)data;
}

static void a_click_is_told_wherever_it_shows(Fixture* fixture, gconstpointer data) {
    (void)data;
    int group_state = 0, choice = 0, letters = 0, box_state = 0, changed = 0;
    g_autoptr(MorvaneAcl) acl = read_acl(fixture, fixture->file);
    g_autoptr(MorvaneIdentity) daemon = morvane_identity_new_for_user(1);
    g_autoptr(MorvaneAclEntry) entry = morvane_acl_add(acl, daemon);
    morvane_acl_entry_set_permission_group(entry, MORVANE_PERMISSION_GROUP_READ);
    MorvanePermission* const group = box_at(entry, 0, -1);
    MorvanePermission* const box = box_at(entry, 0, 0);
    g_assert_true(box_at(entry, 0, 0) == box);
    g_signal_connect(group, "notify::state", G_CALLBACK(count), &group_state);
    g_signal_connect(box, "notify::state", G_CALLBACK(count), &box_state);
    g_signal_connect(entry, "notify::permission-group", G_CALLBACK(count), &choice);
    g_signal_connect(entry, "notify::letters", G_CALLBACK(count), &letters);
    g_signal_connect(acl, "changed", G_CALLBACK(count_signal), &changed);
    changed = 0;

    morvane_permission_set_state(box, MORVANE_STATE_OFF);
    g_assert_cmpint(box_state, ==, 1);
    g_assert_cmpint(group_state, ==, 1);
    g_assert_cmpint(choice, ==, 1);
    g_assert_cmpint(letters, >=, 1);
    g_assert_cmpint(morvane_permission_get_state(group), ==, MORVANE_STATE_MIXED);
    g_assert_cmpint(morvane_acl_entry_get_permission_group(entry), ==,
                    MORVANE_PERMISSION_GROUP_CUSTOM);
    g_assert_cmpint(changed, >=, 1);
    morvane_permission_set_state(box, MORVANE_STATE_OFF);
    g_assert_cmpint(box_state, ==, 1);

    g_object_set(entry, "permission-group", MORVANE_PERMISSION_GROUP_READ_WRITE, NULL);
    g_assert_cmpint(morvane_permission_get_state(box), ==, MORVANE_STATE_ON);
    g_assert_cmpint(morvane_permission_get_state(group), ==, MORVANE_STATE_ON);
}

static void what_the_list_cannot_hold_is_told_with_a_reason(Fixture* fixture, gconstpointer data) {
    (void)data;
    g_autoptr(GError) error = NULL;
    g_autoptr(MorvaneAcl) acl = read_acl(fixture, fixture->file);
    g_autoptr(MorvaneIdentity) daemon = morvane_identity_new_for_user(1);
    g_autoptr(MorvaneAclEntry) entry = morvane_acl_add(acl, daemon);
    MorvanePermission* const administration = box_at(entry, 2, -1);
    g_assert_false(morvane_permission_get_sensitive(administration));
    g_autofree char* reason = morvane_permission_dup_reason(administration);
    g_assert_cmpstr(reason, ==, "only the owner has it");
    g_autofree char* keep = morvane_acl_entry_dup_keep_reason(entry);
    g_assert_null(keep);
    g_autofree char* kept = morvane_acl_entry_dup_keep_reason(entry_at(acl, 0));
    g_assert_nonnull(kept);
    g_assert_false(morvane_acl_remove(acl, entry_at(acl, 0)));

    g_autoptr(GListModel) choices = morvane_acl_entry_list_permission_groups(entry);
    g_autoptr(MorvaneChoice) all = g_list_model_get_item(choices, 0);
    g_assert_cmpint(morvane_choice_get_code(all), ==, MORVANE_PERMISSION_GROUP_ALL);
    g_assert_cmpstr(morvane_choice_get_name(all), ==, "All");
    g_assert_cmpstr(morvane_choice_get_reason(all), ==, "only the owner has it");

    morvane_acl_entry_set_permission_group(entry, MORVANE_PERMISSION_GROUP_ALL);
    g_assert_cmpint(morvane_acl_entry_get_permission_group(entry), ==,
                    MORVANE_PERMISSION_GROUP_READ_WRITE);
    morvane_permission_set_state(administration, MORVANE_STATE_ON);
    g_assert_cmpint(morvane_permission_get_state(administration), ==, MORVANE_STATE_OFF);
    morvane_acl_entry_set_rule(entry_at(acl, 0), MORVANE_RULE_DENY);
    g_assert_cmpint(morvane_acl_entry_get_rule(entry_at(acl, 0)), ==, MORVANE_RULE_ALLOW);
    morvane_acl_entry_set_identity(entry_at(acl, 0), daemon);
    g_assert_cmpint(morvane_acl_entry_get_subject(entry_at(acl, 0)), ==, MORVANE_SUBJECT_OWNER);
    morvane_acl_entry_set_permission_group(entry, MORVANE_PERMISSION_GROUP_NONE);
    morvane_acl_entry_set_inherited(entry, TRUE);
    g_assert_false(morvane_acl_entry_get_inherited(entry));

    /* Half of what can only be stored together is told as lost. */
    morvane_permission_toggle(box_at(entry, 1, 0));
    Awaited awaited = {0};
    g_autoptr(MorvaneAcl) nearest = NULL;
    morvane_file_client_list_losses_async(fixture->client, acl, NULL, come, &awaited);
    g_autoptr(GAsyncResult) result = wait_for(&awaited);
    g_autoptr(GListModel) losses =
        morvane_file_client_list_losses_finish(fixture->client, result, &nearest, &error);
    g_assert_no_error(error);
    g_assert_cmpuint(g_list_model_get_n_items(losses), >, 0);
    g_autoptr(MorvaneLoss) loss = g_list_model_get_item(losses, 0);
    g_assert_true(entry_at(acl, morvane_loss_get_position(loss)) == entry);
    g_assert_cmpstr(morvane_loss_get_who(loss), ==, "allow user daemon");
    g_assert_nonnull(strstr(morvane_loss_get_text(loss), "\": "));
    g_assert_false(write_acl(fixture, acl, &error));
    g_assert_error(error, MORVANE_ERROR, MORVANE_ERROR_LOSSES);
    g_assert_true(morvane_acl_get_modified(nearest));
    g_assert_true(write_acl(fixture, nearest, NULL));
    g_assert_false(morvane_acl_get_modified(nearest));
    g_autofree char* list = getfacl(fixture->file);
    g_assert_nonnull(strstr(list, "user:daemon:r--"));
}

static void entries_outlive_their_list(Fixture* fixture, gconstpointer data) {
    (void)data;
    MorvaneAcl* const acl = read_acl(fixture, fixture->file);
    g_autoptr(MorvaneAclEntry) entry = g_object_ref(entry_at(acl, 0));
    g_autoptr(MorvanePermission) box = g_object_ref(box_at(entry, 0, -1));
    g_object_unref(acl);
    morvane_permission_toggle(box);
    g_assert_cmpint(morvane_permission_get_state(box), ==, MORVANE_STATE_OFF);
    g_clear_object(&entry);
    morvane_permission_toggle(box);
    g_assert_cmpint(morvane_permission_get_state(box), ==, MORVANE_STATE_ON);
}

static void a_removed_entry_is_no_part_of_the_list(Fixture* fixture, gconstpointer data) {
    (void)data;
    g_autoptr(MorvaneAcl) acl = read_acl(fixture, fixture->file);
    g_autoptr(MorvaneIdentity) group = morvane_identity_new_for_group(1);
    g_autoptr(MorvaneAclEntry) entry = morvane_acl_add(acl, group);
    morvane_acl_entry_set_rule(entry, MORVANE_RULE_DENY);
    morvane_acl_sort(acl);
    g_assert_true(entry_at(acl, 0) == entry);
    g_assert_true(morvane_acl_remove(acl, entry));
    g_assert_false(morvane_acl_remove(acl, entry));
    int changed = 0;
    g_signal_connect(acl, "changed", G_CALLBACK(count_signal), &changed);
    morvane_acl_entry_set_rule(entry, MORVANE_RULE_ALLOW);
    g_assert_cmpint(changed, ==, 0);
}

static void errors_are_those_of_gio(Fixture* fixture, gconstpointer data) {
    (void)data;
    static const struct {
        const char* uri;
        int code;
        const char* message;
    } cases[] = {{"file:///there-is-none", G_IO_ERROR_NOT_FOUND, "No such file or directory"},
                 {"http://example/x", G_IO_ERROR_NOT_SUPPORTED,
                  "\"http://example/x\" has no path on this system."}};
    for (guint i = 0; i != G_N_ELEMENTS(cases); ++i) {
        g_autoptr(GError) error = NULL;
        g_autoptr(GFile) file = g_file_new_for_uri(cases[i].uri);
        Awaited awaited = {0};
        morvane_file_client_read_acl_async(fixture->client, file, MORVANE_PRIVILEGE_NEVER, NULL,
                                           come, &awaited);
        g_autoptr(GAsyncResult) result = wait_for(&awaited);
        g_assert_null(morvane_file_client_read_acl_finish(fixture->client, result, &error));
        g_assert_error(error, G_IO_ERROR, cases[i].code);
        g_assert_cmpstr(error->message, ==, cases[i].message);
    }
}

static void what_was_cancelled_before_is_not_done(Fixture* fixture, gconstpointer data) {
    (void)data;
    g_autoptr(GError) error = NULL;
    g_autoptr(GCancellable) cancellable = g_cancellable_new();
    g_autoptr(MorvaneAcl) acl = read_acl(fixture, fixture->file);
    g_autofree char* before = getfacl(fixture->file);
    morvane_acl_entry_set_permission_group(entry_at(acl, 2), MORVANE_PERMISSION_GROUP_READ);
    g_cancellable_cancel(cancellable);
    Awaited awaited = {0};
    morvane_file_client_write_acl_async(fixture->client, acl, MORVANE_PRIVILEGE_NEVER, cancellable,
                                        come, &awaited);
    g_autoptr(GAsyncResult) result = wait_for(&awaited);
    g_assert_false(morvane_file_client_write_acl_finish(fixture->client, result, &error));
    g_assert_error(error, G_IO_ERROR, G_IO_ERROR_CANCELLED);
    g_assert_true(morvane_acl_get_modified(acl));
    g_autofree char* after = getfacl(fixture->file);
    g_assert_cmpstr(after, ==, before);
}

static void cancel(GObject* object, GParamSpec* property, gpointer cancellable) {
    (void)object;
    (void)property;
    g_cancellable_cancel(cancellable);
}

static void what_was_done_before_a_cancel_counts(Fixture* fixture, gconstpointer data) {
    (void)data;
    g_autoptr(GError) error = NULL;
    g_autoptr(GCancellable) cancellable = g_cancellable_new();
    g_autoptr(MorvaneAcl) acl = read_acl(fixture, fixture->file);
    morvane_acl_entry_set_permission_group(entry_at(acl, 2), MORVANE_PERMISSION_GROUP_READ);
    /* It is told once the list is written, and before the callback. */
    g_signal_connect(acl, "notify::modified", G_CALLBACK(cancel), cancellable);
    Awaited awaited = {0};
    morvane_file_client_write_acl_async(fixture->client, acl, MORVANE_PRIVILEGE_NEVER, cancellable,
                                        come, &awaited);
    g_autoptr(GAsyncResult) result = wait_for(&awaited);
    g_assert_true(g_cancellable_is_cancelled(cancellable));
    g_assert_true(morvane_file_client_write_acl_finish(fixture->client, result, &error));
    g_assert_no_error(error);
    g_autofree char* list = getfacl(fixture->file);
    g_assert_nonnull(strstr(list, "other::r--\n"));
}

static gpointer read_on_a_thread(gpointer data) {
    Fixture* const fixture = data;
    g_autoptr(GError) error = NULL;
    g_autoptr(GMainContext) context = g_main_context_new();
    g_main_context_push_thread_default(context);
    Awaited awaited = {.context = context};
    GFile* items[] = {fixture->file};
    g_autoptr(MorvaneSizes) sizes = morvane_sizes_new(items, 1);
    morvane_file_client_measure_async(fixture->client, sizes, MORVANE_PRIVILEGE_NEVER, NULL, come,
                                      &awaited);
    g_autoptr(GAsyncResult) result = wait_for(&awaited);
    g_assert_true(awaited.thread == g_thread_self());
    g_assert_true(morvane_file_client_measure_finish(fixture->client, result, &error));
    g_assert_no_error(error);
    g_assert_cmpint(morvane_sizes_get_total(sizes), ==, 4);
    g_main_context_pop_thread_default(context);
    return NULL;
}

static void callbacks_come_on_the_context_of_the_call(Fixture* fixture, gconstpointer data) {
    (void)data;
    g_thread_join(g_thread_new("own context", read_on_a_thread, fixture));
}

static void items_are_renamed_listed_and_measured(Fixture* fixture, gconstpointer data) {
    (void)data;
    g_autoptr(GError) error = NULL;
    g_autoptr(MorvaneProgress) progress = morvane_progress_new();
    GFile* files[] = {fixture->file};
    char* names[] = {"other", NULL};
    Awaited awaited = {0};
    morvane_file_client_rename_async(fixture->client, files, 1, names, MORVANE_PRIVILEGE_NEVER,
                                     progress, NULL, come, &awaited);
    g_autoptr(GAsyncResult) first = wait_for(&awaited);
    g_autoptr(GListModel) places =
        morvane_file_client_rename_finish(fixture->client, first, &error);
    g_assert_no_error(error);
    g_assert_cmpuint(g_list_model_get_n_items(places), ==, 1);
    g_autoptr(GFile) place = g_list_model_get_item(places, 0);
    g_autofree char* place_name = g_file_get_basename(place);
    g_assert_cmpstr(place_name, ==, "other");

    g_autoptr(GFile) folder = g_file_new_for_path(fixture->folder);
    morvane_file_client_list_contents_async(fixture->client, folder, MORVANE_PRIVILEGE_NEVER, NULL,
                                            come, &awaited);
    g_autoptr(GAsyncResult) second = wait_for(&awaited);
    g_autoptr(GListModel) contents =
        morvane_file_client_list_contents_finish(fixture->client, second, &error);
    g_assert_no_error(error);
    g_assert_cmpuint(g_list_model_get_n_items(contents), ==, 1);
    g_autoptr(GFile) item = g_list_model_get_item(contents, 0);
    g_autofree char* name = g_file_get_basename(item);
    g_assert_cmpstr(name, ==, "other");

    morvane_file_client_rename_async(fixture->client, files, 1, names, MORVANE_PRIVILEGE_NEVER,
                                     progress, NULL, come, &awaited);
    g_autoptr(GAsyncResult) third = wait_for(&awaited);
    g_assert_null(morvane_file_client_rename_finish(fixture->client, third, &error));
    g_assert_error(error, G_IO_ERROR, G_IO_ERROR_NOT_FOUND);
    g_assert_cmpuint(g_list_model_get_n_items(morvane_progress_get_failures(progress)), ==, 1);
    g_autoptr(MorvaneFailure) failure =
        g_list_model_get_item(morvane_progress_get_failures(progress), 0);
    g_assert_true(g_file_equal(morvane_failure_get_file(failure), fixture->file));
    g_assert_cmpstr(morvane_failure_get_message(failure), ==, "No such file or directory");
    g_assert_error(morvane_failure_get_error(failure), G_IO_ERROR, G_IO_ERROR_NOT_FOUND);
}

static void what_a_propagation_has_done_is_counted(Fixture* fixture, gconstpointer data) {
    (void)data;
    enum { files = 3000 };
    g_autoptr(GError) error = NULL;
    for (int i = 1; i != files; ++i) { /* besides the one that is there */
        g_autofree char* path = g_strdup_printf("%s/%d", fixture->folder, i);
        g_assert_true(g_file_set_contents(path, "", 0, &error));
    }
    g_autoptr(GFile) folder = g_file_new_for_path(fixture->folder);
    g_autoptr(MorvaneAcl) acl = read_acl(fixture, folder);
    g_autoptr(MorvaneProgress) progress = morvane_progress_new();
    int told = 0;
    g_signal_connect(progress, "notify::items-done", G_CALLBACK(count), &told);
    Awaited awaited = {0};
    morvane_file_client_propagate_acl_async(fixture->client, acl, MORVANE_PRIVILEGE_NEVER, progress,
                                            NULL, come, &awaited);
    g_autoptr(GAsyncResult) result = wait_for(&awaited);
    g_assert_true(morvane_file_client_propagate_acl_finish(fixture->client, result, &error));
    g_assert_no_error(error);
    g_assert_cmpint(told, >, 0);
    g_assert_cmpuint(morvane_progress_get_items_done(progress), ==, files);
    g_assert_cmpuint(morvane_progress_get_items_failed(progress), ==, 0);
    g_assert_cmpuint(g_list_model_get_n_items(morvane_progress_get_failures(progress)), ==, 0);
}

static void a_folders_list_is_propagated(Fixture* fixture, gconstpointer data) {
    (void)data;
    g_autoptr(GError) error = NULL;
    g_autoptr(GFile) folder = g_file_new_for_path(fixture->folder);
    g_autoptr(MorvaneAcl) acl = read_acl(fixture, folder);
    g_assert_true(morvane_acl_is_folder(acl));
    g_autoptr(MorvaneIdentity) daemon = morvane_identity_new_for_user(1);
    g_autoptr(MorvaneAclEntry) entry = morvane_acl_add(acl, daemon);
    morvane_acl_entry_set_permission_group(entry, MORVANE_PERMISSION_GROUP_READ);
    g_autoptr(GListModel) choices = morvane_acl_entry_list_applies_to(entry);
    const guint last = g_list_model_get_n_items(choices) - 1;
    g_assert_cmpuint(last, >, 0);
    for (guint i = 0; i <= last; ++i) {
        g_autoptr(MorvaneChoice) choice = g_list_model_get_item(choices, i);
        if (!morvane_choice_get_reason(choice) &&
            strstr(morvane_choice_get_name(choice), "All descendants"))
            morvane_acl_entry_set_applies_to(entry, morvane_choice_get_code(choice));
    }
    MorvanePermission* const item = box_at(entry, 3, 0);
    g_assert_true(morvane_permission_get_sensitive(item));
    int told = 0;
    g_signal_connect(item, "notify::sensitive", G_CALLBACK(count), &told);
    const int everything = morvane_acl_entry_get_applies_to(entry);
    g_autoptr(MorvaneChoice) alone = g_list_model_get_item(choices, 0);
    morvane_acl_entry_set_applies_to(entry, morvane_choice_get_code(alone));
    g_assert_false(morvane_permission_get_sensitive(item)); /* it is the only box that is on */
    g_assert_cmpint(told, >, 0);
    morvane_acl_entry_set_applies_to(entry, everything);
    g_autofree char* applies = morvane_acl_entry_dup_applies_to_text(entry);
    g_assert_nonnull(strstr(applies, "All descendants"));
    Awaited awaited = {0};
    morvane_file_client_propagate_acl_async(fixture->client, acl, MORVANE_PRIVILEGE_NEVER, NULL,
                                            NULL, come, &awaited);
    g_autoptr(GAsyncResult) result = wait_for(&awaited);
    g_assert_true(morvane_file_client_propagate_acl_finish(fixture->client, result, &error));
    g_assert_no_error(error);
    g_autofree char* list = getfacl(fixture->file);
    g_assert_nonnull(strstr(list, "user:daemon:r-x\t#effective:r--\n"));
}

static void what_a_user_can_do_is_shown_and_not_set(Fixture* fixture, gconstpointer data) {
    (void)data;
    g_autoptr(GError) error = NULL;
    g_autoptr(MorvaneIdentity) root = morvane_identity_new_for_user(0);
    Awaited awaited = {0};
    morvane_file_client_effective_access_async(fixture->client, fixture->file, root,
                                               MORVANE_PRIVILEGE_NEVER, NULL, come, &awaited);
    g_autoptr(GAsyncResult) result = wait_for(&awaited);
    g_autoptr(GListModel) groups =
        morvane_file_client_effective_access_finish(fixture->client, result, &error);
    g_assert_no_error(error);
    g_assert_cmpuint(g_list_model_get_n_items(groups), ==, 3);
    g_autoptr(MorvanePermission) write = g_list_model_get_item(groups, 1);
    g_autoptr(MorvanePermission) box =
        g_list_model_get_item(morvane_permission_get_children(write), 0);
    g_assert_cmpint(morvane_permission_get_state(box), ==, MORVANE_STATE_ON);
    g_assert_false(morvane_permission_get_sensitive(box));
    morvane_permission_toggle(box);
    morvane_permission_set_state(box, MORVANE_STATE_OFF);
    g_assert_cmpint(morvane_permission_get_state(box), ==, MORVANE_STATE_ON);
}

static void people_are_found_by_what_was_typed(Fixture* fixture, gconstpointer data) {
    (void)data;
    g_autoptr(GError) error = NULL;
    Awaited awaited = {0};
    morvane_file_client_search_identities_async(fixture->client, "DAEMO", NULL, come, &awaited);
    g_autoptr(GAsyncResult) result = wait_for(&awaited);
    g_autoptr(GListModel) found =
        morvane_file_client_search_identities_finish(fixture->client, result, &error);
    g_assert_no_error(error);
    g_assert_cmpuint(g_list_model_get_n_items(found), ==, 2);
    g_autoptr(MorvaneIdentity) user = g_list_model_get_item(found, 0);
    g_autoptr(MorvaneIdentity) group = g_list_model_get_item(found, 1);
    g_autoptr(MorvaneIdentity) same = morvane_identity_new_for_user(1);
    g_assert_true(morvane_identity_equal(user, same));
    g_assert_false(morvane_identity_equal(user, group));
    g_assert_false(morvane_identity_equal(user, NULL));
    g_assert_true(morvane_identity_is_group(group));
    g_autofree char* text = morvane_identity_dup_text(group);
    g_assert_cmpstr(text, ==, "group daemon");
    g_autoptr(MorvaneIdentity) nameless = morvane_identity_new_for_user(424242);
    g_autofree char* name = morvane_identity_dup_name(nameless);
    g_assert_cmpstr(name, ==, "uid 424242");
}

typedef struct {
    MorvaneAcl* acl;
    MorvaneAclEntry* entry;
} Dropped;

static void drop(GObject* object, GParamSpec* property, gpointer data) {
    (void)object;
    (void)property;
    Dropped* const dropped = data;
    g_clear_object(&dropped->acl);
    g_clear_object(&dropped->entry);
}

static void a_handler_may_drop_what_it_is_told_of(Fixture* fixture, gconstpointer data) {
    (void)data;
    Dropped dropped = {.acl = read_acl(fixture, fixture->file)};
    g_autoptr(MorvaneAclEntry) kept = g_object_ref(entry_at(dropped.acl, 2));
    g_signal_connect(dropped.acl, "notify::modified", G_CALLBACK(drop), &dropped);
    morvane_acl_entry_set_permission_group(kept, MORVANE_PERMISSION_GROUP_READ);
    g_assert_null(dropped.acl);
    g_assert_cmpint(morvane_acl_entry_get_permission_group(kept), ==,
                    MORVANE_PERMISSION_GROUP_READ);

    g_autoptr(MorvaneIdentity) daemon = morvane_identity_new_for_user(1);
    dropped.acl = read_acl(fixture, fixture->file);
    dropped.entry = morvane_acl_add(dropped.acl, daemon);
    g_autoptr(MorvanePermission) box = g_object_ref(box_at(dropped.entry, 1, 0));
    MorvanePermission* const group = box_at(dropped.entry, 1, -1);
    g_signal_connect(group, "notify::state", G_CALLBACK(drop), &dropped);
    morvane_permission_toggle(box);
    g_assert_null(dropped.entry);
    g_assert_cmpint(morvane_permission_get_state(box), ==, MORVANE_STATE_OFF);
}

static void remove_what_came(MorvaneAcl* acl, guint position, guint removed, guint added,
                             gpointer data) {
    (void)data;
    if (removed == 0 && added == 1)
        g_assert_true(morvane_acl_remove(acl, entry_at(acl, position)));
}

static void what_was_added_is_there_even_if_a_handler_removes_it(Fixture* fixture,
                                                                 gconstpointer data) {
    (void)data;
    g_autoptr(MorvaneAcl) acl = read_acl(fixture, fixture->file);
    g_signal_connect(acl, "items-changed", G_CALLBACK(remove_what_came), NULL);
    g_autoptr(MorvaneIdentity) daemon = morvane_identity_new_for_user(1);
    g_autoptr(MorvaneAclEntry) entry = morvane_acl_add(acl, daemon);
    g_autofree char* who = morvane_acl_entry_dup_who(entry);
    g_assert_cmpstr(who, ==, "user daemon");
    g_assert_cmpuint(g_list_model_get_n_items(G_LIST_MODEL(acl)), ==, 3);
}

static void note_thread(gpointer data, GObject* gone) {
    (void)gone;
    if (g_thread_self() != *(GThread**)data)
        g_atomic_pointer_set((GThread**)data, g_thread_self());
}

static void objects_end_on_the_thread_that_uses_them(Fixture* fixture, gconstpointer data) {
    (void)data;
    GThread* const own = g_thread_self();
    GThread* ended = own;
    g_autoptr(GFile) folder = g_file_new_for_path(fixture->folder);
    g_autoptr(MorvaneAcl) acl = read_acl(fixture, folder);
    for (int i = 0; i != 100; ++i) {
        Awaited propagated = {0}, measured = {0};
        MorvaneProgress* const progress = morvane_progress_new();
        MorvaneSizes* const sizes = morvane_sizes_new(&folder, 1);
        g_object_weak_ref(G_OBJECT(progress), note_thread, &ended);
        g_object_weak_ref(G_OBJECT(sizes), note_thread, &ended);
        morvane_file_client_propagate_acl_async(fixture->client, acl, MORVANE_PRIVILEGE_NEVER,
                                                progress, NULL, come, &propagated);
        morvane_file_client_measure_async(fixture->client, sizes, MORVANE_PRIVILEGE_NEVER, NULL,
                                          come, &measured);
        g_object_unref(progress);
        g_object_unref(sizes);
        g_clear_object(&(GAsyncResult*){wait_for(&propagated)});
        while (!measured.result)
            g_main_context_iteration(NULL, TRUE);
        g_clear_object(&measured.result);
        g_assert_true(g_atomic_pointer_get(&ended) == own);
    }
}

static void sizes_are_busy_until_the_last_measure_has_ended(Fixture* fixture, gconstpointer data) {
    (void)data;
    g_autoptr(MorvaneSizes) sizes = morvane_sizes_new(&fixture->file, 1);
    Awaited first = {0}, second = {0};
    morvane_file_client_measure_async(fixture->client, sizes, MORVANE_PRIVILEGE_NEVER, NULL, come,
                                      &first);
    morvane_file_client_measure_async(fixture->client, sizes, MORVANE_PRIVILEGE_NEVER, NULL, come,
                                      &second);
    while (!first.result || !second.result) {
        g_assert_true(morvane_sizes_get_busy(sizes));
        g_main_context_iteration(NULL, TRUE);
    }
    g_assert_false(morvane_sizes_get_busy(sizes));
    g_clear_object(&first.result);
    g_clear_object(&second.result);
}

static void objects_that_a_program_makes_itself_are_empty_ones(void) {
    g_autoptr(MorvaneAcl) acl = g_object_new(MORVANE_TYPE_ACL, NULL);
    g_assert_cmpuint(g_list_model_get_n_items(G_LIST_MODEL(acl)), ==, 0);
    g_assert_null(morvane_acl_get_file(acl));
    Fixture fixture = {.client = morvane_file_client_new()};
    g_autoptr(GError) error = NULL;
    g_assert_false(write_acl(&fixture, acl, &error));
    g_assert_error(error, G_IO_ERROR, G_IO_ERROR_INVALID_ARGUMENT);
    g_object_unref(fixture.client);
    g_autoptr(MorvaneAclEntry) entry = g_object_new(MORVANE_TYPE_ACL_ENTRY, NULL);
    g_assert_cmpuint(g_list_model_get_n_items(morvane_acl_entry_get_permissions(entry)), ==, 0);
    g_assert_false(morvane_acl_remove(acl, entry));
    g_autoptr(MorvanePermission) box = g_object_new(MORVANE_TYPE_PERMISSION, NULL);
    g_assert_null(morvane_permission_get_children(box));
    morvane_permission_toggle(box);
    g_autoptr(MorvaneIdentity) identity = g_object_new(MORVANE_TYPE_IDENTITY, NULL);
    g_autofree char* text = morvane_identity_dup_text(identity);
    g_assert_cmpstr(text, ==, "everyone");
}

/* From here on with the service that asks. */

typedef struct {
    GCancellable* cancellable;
    int told;
} Asked;

static void cancel_at_the_third(GObject* object, GParamSpec* property, gpointer data) {
    (void)object;
    (void)property;
    Asked* const asked = data;
    if (++asked->told == 3)
        g_cancellable_cancel(asked->cancellable);
}

static void a_propagation_that_runs_is_cancelled(Fixture* fixture, gconstpointer data) {
    (void)data;
    g_autoptr(GError) error = NULL;
    g_autoptr(GCancellable) cancellable = g_cancellable_new();
    g_autoptr(MorvaneProgress) progress = morvane_progress_new();
    g_autoptr(MorvaneAcl) acl = read_acl(fixture, fixture->file);
    Asked asked = {.cancellable = cancellable};
    g_signal_connect(progress, "notify::reports", G_CALLBACK(cancel_at_the_third), &asked);
    Awaited awaited = {0};
    morvane_file_client_propagate_acl_async(fixture->client, acl, MORVANE_PRIVILEGE_NEVER, progress,
                                            cancellable, come, &awaited);
    g_autoptr(GAsyncResult) result = wait_for(&awaited);
    g_assert_false(morvane_file_client_propagate_acl_finish(fixture->client, result, &error));
    g_assert_error(error, G_IO_ERROR, G_IO_ERROR_CANCELLED);
    g_assert_cmpuint(morvane_progress_get_reports(progress), >=, 3);
}

static void sizes_grow_and_stay_when_they_are_cancelled(Fixture* fixture, gconstpointer data) {
    (void)data;
    g_autoptr(GError) error = NULL;
    g_autoptr(GCancellable) cancellable = g_cancellable_new();
    g_autoptr(GFile) file = g_file_new_for_path("/1234567");
    GFile* files[] = {file};
    g_autoptr(MorvaneSizes) sizes = morvane_sizes_new(files, 1);
    g_autoptr(MorvaneSize) size = g_list_model_get_item(G_LIST_MODEL(sizes), 0);
    g_assert_cmpint(morvane_size_get_size(size), ==, -1);
    Asked asked = {.cancellable = cancellable, .told = 2};
    g_signal_connect(size, "notify::detail", G_CALLBACK(cancel_at_the_third), &asked);
    Awaited awaited = {0};
    morvane_file_client_measure_async(fixture->client, sizes, MORVANE_PRIVILEGE_NEVER, cancellable,
                                      come, &awaited);
    g_assert_true(morvane_sizes_get_busy(sizes));
    g_autoptr(GAsyncResult) result = wait_for(&awaited);
    g_assert_false(morvane_file_client_measure_finish(fixture->client, result, &error));
    g_assert_error(error, G_IO_ERROR, G_IO_ERROR_CANCELLED);
    g_assert_false(morvane_sizes_get_busy(sizes));
    g_assert_cmpint(morvane_sizes_get_total(sizes), ==, 1234567);
    g_autofree char* detail = morvane_size_dup_detail(size);
    g_assert_cmpstr(detail, ==, "1.2 MB (1,234,567 bytes)");
}

int main(int argc, char** argv) {
    g_test_init(&argc, &argv, NULL);
    g_log_set_always_fatal(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_CRITICAL);
#define TEST(NAME) g_test_add("/binding/" #NAME, Fixture, NULL, set_up, NAME, tear_down)
    if (argc > 1 && strcmp(argv[1], "--asking") == 0) {
        TEST(a_propagation_that_runs_is_cancelled);
        TEST(sizes_grow_and_stay_when_they_are_cancelled);
        return g_test_run();
    }
    TEST(what_is_edited_is_saved);
    TEST(a_list_may_come_before_the_names_in_it);
    TEST(only_the_box_for_execution_asks_for_execution);
    TEST(another_group_does_not_take_execution_back);
    TEST(the_nearest_list_stores_what_it_shows);
    TEST(a_handler_may_edit_on_and_what_is_shown_is_stored);
    TEST(what_is_edited_during_a_write_is_still_to_be_saved);
    TEST(a_click_is_told_wherever_it_shows);
    TEST(what_the_list_cannot_hold_is_told_with_a_reason);
    TEST(entries_outlive_their_list);
    TEST(a_removed_entry_is_no_part_of_the_list);
    TEST(errors_are_those_of_gio);
    TEST(what_was_cancelled_before_is_not_done);
    TEST(what_was_done_before_a_cancel_counts);
    TEST(callbacks_come_on_the_context_of_the_call);
    TEST(items_are_renamed_listed_and_measured);
    TEST(what_a_propagation_has_done_is_counted);
    TEST(a_folders_list_is_propagated);
    TEST(what_a_user_can_do_is_shown_and_not_set);
    TEST(people_are_found_by_what_was_typed);
    TEST(a_handler_may_drop_what_it_is_told_of);
    TEST(what_was_added_is_there_even_if_a_handler_removes_it);
    TEST(objects_end_on_the_thread_that_uses_them);
    TEST(sizes_are_busy_until_the_last_measure_has_ended);
    g_test_add_func("/binding/objects_that_a_program_makes_itself_are_empty_ones",
                    objects_that_a_program_makes_itself_are_empty_ones);
    return g_test_run();
}

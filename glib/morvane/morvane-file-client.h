/* SPDX-License-Identifier: MIT */
#pragma once

#include <morvane/morvane-acl.h>
#include <morvane/morvane-permission.h>
#include <morvane/morvane-progress.h>
#include <morvane/morvane-sizes.h>

G_BEGIN_DECLS

/**
 * MorvaneFileClient:
 *
 * The operations on files, carried out by services in other processes.
 *
 * Each operation returns at once. Its callback comes exactly once, on the main context that is the
 * thread's default in the call. Operations run beside each other; what depends on one is begun in
 * its callback. An operation that is cancelled before it was sent is not carried out; one that was
 * sent is told to stop, and its result says what it has done. So a cancelled operation may still
 * succeed.
 *
 * A client may be used from any thread. Lists, entries and boxes belong to one thread, which should
 * be the one that runs the default main context.
 *
 * Errors are of %MORVANE_ERROR or %G_IO_ERROR, with a message to show.
 */
#define MORVANE_TYPE_FILE_CLIENT (morvane_file_client_get_type())
MORVANE_GLIB_API
G_DECLARE_FINAL_TYPE(MorvaneFileClient, morvane_file_client, MORVANE, FILE_CLIENT, GObject)

/**
 * morvane_file_client_new:
 *
 * Makes a client. One is enough for a program.
 *
 * Returns: (transfer full): the client
 */
MORVANE_GLIB_API MorvaneFileClient* morvane_file_client_new(void);

/**
 * morvane_file_client_get_names_later: (get-property names-later)
 * @self: a client
 *
 * Whether lists that are read do not wait for names that a directory is slow to tell. Their entries
 * are for %NULL then, with a number as #MorvaneAclEntry:who, until they notify their
 * #MorvaneAclEntry:identity on the main context of the call that read them. For a window, which
 * binds to them; a program that looks at a list once should leave it.
 *
 * Returns: whether they do not wait; at first they do
 */
MORVANE_GLIB_API gboolean morvane_file_client_get_names_later(MorvaneFileClient* self);

/**
 * morvane_file_client_set_names_later: (set-property names-later)
 * @self: a client
 * @names_later: whether lists do not wait for names
 *
 * Sets #MorvaneFileClient:names-later for the lists that are read from now on.
 */
MORVANE_GLIB_API void morvane_file_client_set_names_later(MorvaneFileClient* self,
                                                          gboolean names_later);

/**
 * morvane_file_client_read_acl_async:
 * @self: a client
 * @file: the item
 * @privilege: who does the work
 * @cancellable: (nullable): what cancels it
 * @callback: (scope async): is called once, on the main context of this call, never inside it
 * @user_data: the data of @callback
 *
 * Reads the access-control list of an item.
 */
MORVANE_GLIB_API void morvane_file_client_read_acl_async(MorvaneFileClient* self, GFile* file,
                                                         MorvanePrivilege privilege,
                                                         GCancellable* cancellable,
                                                         GAsyncReadyCallback callback,
                                                         gpointer user_data);

/**
 * morvane_file_client_read_acl_finish:
 * @self: a client
 * @result: what the callback got
 * @error: why there is no result
 *
 * Ends morvane_file_client_read_acl_async().
 *
 * Returns: (transfer full): the list, or %NULL with an error
 */
MORVANE_GLIB_API MorvaneAcl* morvane_file_client_read_acl_finish(MorvaneFileClient* self,
                                                                 GAsyncResult* result,
                                                                 GError** error);

/**
 * morvane_file_client_write_acl_async:
 * @self: a client
 * @acl: the list
 * @privilege: who does the work
 * @cancellable: (nullable): what cancels it
 * @callback: (scope async): is called once, on the main context of this call, never inside it
 * @user_data: the data of @callback
 *
 * Replaces the list of the item by what @acl is now. Read it again afterwards: @acl is still what
 * was made of the list before, and a second write of it would end with %MORVANE_ERROR_CHANGED.
 */
MORVANE_GLIB_API void morvane_file_client_write_acl_async(MorvaneFileClient* self, MorvaneAcl* acl,
                                                          MorvanePrivilege privilege,
                                                          GCancellable* cancellable,
                                                          GAsyncReadyCallback callback,
                                                          gpointer user_data);

/**
 * morvane_file_client_write_acl_finish:
 * @self: a client
 * @result: what the callback got
 * @error: why there is no result
 *
 * Ends morvane_file_client_write_acl_async().
 *
 * Returns: whether it was written
 */
MORVANE_GLIB_API gboolean morvane_file_client_write_acl_finish(MorvaneFileClient* self,
                                                               GAsyncResult* result,
                                                               GError** error);

/**
 * morvane_file_client_propagate_acl_async:
 * @self: a client
 * @acl: the list of a folder
 * @privilege: who does the work
 * @progress: (nullable): how far it is, and what failed
 * @cancellable: (nullable): what cancels it
 * @callback: (scope async): is called once, on the main context of this call, never inside it
 * @user_data: the data of @callback
 *
 * Gives everything below the folder what it inherits of @acl, as it is now. The folder itself keeps
 * the list that it has.
 */
MORVANE_GLIB_API void morvane_file_client_propagate_acl_async(
    MorvaneFileClient* self, MorvaneAcl* acl, MorvanePrivilege privilege, MorvaneProgress* progress,
    GCancellable* cancellable, GAsyncReadyCallback callback, gpointer user_data);

/**
 * morvane_file_client_propagate_acl_finish:
 * @self: a client
 * @result: what the callback got
 * @error: why there is no result
 *
 * Ends morvane_file_client_propagate_acl_async().
 *
 * Returns: whether all has its list
 */
MORVANE_GLIB_API gboolean morvane_file_client_propagate_acl_finish(MorvaneFileClient* self,
                                                                   GAsyncResult* result,
                                                                   GError** error);

/**
 * morvane_file_client_list_losses_async:
 * @self: a client
 * @acl: the list
 * @cancellable: (nullable): what cancels it
 * @callback: (scope async): is called once, on the main context of this call, never inside it
 * @user_data: the data of @callback
 *
 * Works out what writing @acl, as it is now, would lose. Nothing is written.
 */
MORVANE_GLIB_API void morvane_file_client_list_losses_async(MorvaneFileClient* self,
                                                            MorvaneAcl* acl,
                                                            GCancellable* cancellable,
                                                            GAsyncReadyCallback callback,
                                                            gpointer user_data);

/**
 * morvane_file_client_list_losses_finish:
 * @self: a client
 * @result: what the callback got
 * @nearest: (out) (optional) (transfer full): the nearest list that grants no more, to be shown or
 *   written instead
 * @error: why there is no result
 *
 * Ends morvane_file_client_list_losses_async().
 *
 * Returns: (transfer full): a list of #MorvaneLoss, which is empty if nothing is
 *   lost; or %NULL with an error
 */
MORVANE_GLIB_API GListModel* morvane_file_client_list_losses_finish(MorvaneFileClient* self,
                                                                    GAsyncResult* result,
                                                                    MorvaneAcl** nearest,
                                                                    GError** error);

/**
 * morvane_file_client_effective_access_async:
 * @self: a client
 * @file: the item
 * @identity: the user or group
 * @privilege: who does the work
 * @cancellable: (nullable): what cancels it
 * @callback: (scope async): is called once, on the main context of this call, never inside it
 * @user_data: the data of @callback
 *
 * Determines what a user or group can really do to an item.
 */
MORVANE_GLIB_API void morvane_file_client_effective_access_async(
    MorvaneFileClient* self, GFile* file, MorvaneIdentity* identity, MorvanePrivilege privilege,
    GCancellable* cancellable, GAsyncReadyCallback callback, gpointer user_data);

/**
 * morvane_file_client_effective_access_finish:
 * @self: a client
 * @result: what the callback got
 * @error: why there is no result
 *
 * Ends morvane_file_client_effective_access_async().
 *
 * Returns: (transfer full): a list of #MorvanePermission, as an entry has them, or %NULL with
 *   an error
 */
MORVANE_GLIB_API GListModel* morvane_file_client_effective_access_finish(MorvaneFileClient* self,
                                                                         GAsyncResult* result,
                                                                         GError** error);

/**
 * morvane_file_client_measure_async:
 * @self: a client
 * @sizes: what is filled in
 * @privilege: who does the work
 * @cancellable: (nullable): what cancels it
 * @callback: (scope async): is called once, on the main context of this call, never inside it
 * @user_data: the data of @callback
 *
 * Adds up each item with all that is below it. What is known so far is in @sizes meanwhile, and
 * stays there if it is cancelled.
 */
MORVANE_GLIB_API void morvane_file_client_measure_async(
    MorvaneFileClient* self, MorvaneSizes* sizes, MorvanePrivilege privilege,
    GCancellable* cancellable, GAsyncReadyCallback callback, gpointer user_data);

/**
 * morvane_file_client_measure_finish:
 * @self: a client
 * @result: what the callback got
 * @error: why there is no result
 *
 * Ends morvane_file_client_measure_async().
 *
 * Returns: whether all was counted
 */
MORVANE_GLIB_API gboolean morvane_file_client_measure_finish(MorvaneFileClient* self,
                                                             GAsyncResult* result, GError** error);

/**
 * morvane_file_client_list_contents_async:
 * @self: a client
 * @folder: the folder
 * @privilege: who does the work
 * @cancellable: (nullable): what cancels it
 * @callback: (scope async): is called once, on the main context of this call, never inside it
 * @user_data: the data of @callback
 *
 * Lists the items inside a folder, in its own order.
 */
MORVANE_GLIB_API void morvane_file_client_list_contents_async(
    MorvaneFileClient* self, GFile* folder, MorvanePrivilege privilege, GCancellable* cancellable,
    GAsyncReadyCallback callback, gpointer user_data);

/**
 * morvane_file_client_list_contents_finish:
 * @self: a client
 * @result: what the callback got
 * @error: why there is no result
 *
 * Ends morvane_file_client_list_contents_async().
 *
 * Returns: (transfer full): a list of #GFile, or %NULL with an error
 */
MORVANE_GLIB_API GListModel* morvane_file_client_list_contents_finish(MorvaneFileClient* self,
                                                                      GAsyncResult* result,
                                                                      GError** error);

/**
 * morvane_file_client_search_identities_async:
 * @self: a client
 * @text: what the user has typed
 * @cancellable: (nullable): what cancels it
 * @callback: (scope async): is called once, on the main context of this call, never inside it
 * @user_data: the data of @callback
 *
 * Finds whom an entry can be for: users, groups and everyone whose names contain @text, in letters
 * of either case; the best matches first, all if it is empty. Cancel the search for what was typed
 * before when the user types on.
 */
MORVANE_GLIB_API void morvane_file_client_search_identities_async(MorvaneFileClient* self,
                                                                  const char* text,
                                                                  GCancellable* cancellable,
                                                                  GAsyncReadyCallback callback,
                                                                  gpointer user_data);

/**
 * morvane_file_client_search_identities_finish:
 * @self: a client
 * @result: what the callback got
 * @error: why there is no result
 *
 * Ends morvane_file_client_search_identities_async().
 *
 * Returns: (transfer full): a list of #MorvaneIdentity, or %NULL with an error
 */
MORVANE_GLIB_API GListModel* morvane_file_client_search_identities_finish(MorvaneFileClient* self,
                                                                          GAsyncResult* result,
                                                                          GError** error);

/**
 * morvane_file_client_rename_async:
 * @self: a client
 * @files: (array length=n_files): the items
 * @n_files: how many they are
 * @names: (array zero-terminated=1) (element-type filename): as many names
 * @privilege: who does the work
 * @progress: (nullable): what failed
 * @cancellable: (nullable): what cancels it
 * @callback: (scope async): is called once, on the main context of this call, never inside it
 * @user_data: the data of @callback
 *
 * Gives each item the name at its place in @names, all as if at once. A name that is not UTF-8 is
 * refused with %G_IO_ERROR_INVALID_ARGUMENT, and nothing is renamed; the items may have such names.
 */
MORVANE_GLIB_API void morvane_file_client_rename_async(
    MorvaneFileClient* self, GFile** files, guint n_files, char** names, MorvanePrivilege privilege,
    MorvaneProgress* progress, GCancellable* cancellable, GAsyncReadyCallback callback,
    gpointer user_data);

/**
 * morvane_file_client_rename_finish:
 * @self: a client
 * @result: what the callback got
 * @error: why there is no result
 *
 * Ends morvane_file_client_rename_async().
 *
 * Returns: (transfer full): a list of #GFile, where each item is now, in their order; or %NULL with
 *   an error. Those that have not their new names are among the failures of the progress, with
 *   where they are; the others have theirs.
 */
MORVANE_GLIB_API GListModel* morvane_file_client_rename_finish(MorvaneFileClient* self,
                                                               GAsyncResult* result,
                                                               GError** error);

G_END_DECLS

/* SPDX-License-Identifier: MIT */
#pragma once

#include <morvane/morvane-base.h>

G_BEGIN_DECLS

/**
 * MorvaneFailure:
 *
 * An item for which an operation failed, and why.
 *
 * Immutable.
 */
#define MORVANE_TYPE_FAILURE (morvane_failure_get_type())
MORVANE_GLIB_API
G_DECLARE_FINAL_TYPE(MorvaneFailure, morvane_failure, MORVANE, FAILURE, GObject)

/**
 * morvane_failure_get_file: (get-property file)
 * @self: a failure
 *
 * The item.
 *
 * Returns: (transfer none) (nullable): the item, or %NULL if it is not about one alone
 */
MORVANE_GLIB_API GFile* morvane_failure_get_file(MorvaneFailure* self);

/**
 * morvane_failure_get_message: (get-property message)
 * @self: a failure
 *
 * What went wrong.
 *
 * Returns: (transfer none): the message, in the language of the process
 */
MORVANE_GLIB_API const char* morvane_failure_get_message(MorvaneFailure* self);

/**
 * morvane_failure_get_error: (get-property error)
 * @self: a failure
 *
 * What went wrong, as the operation itself would have ended with it. Its message is that of
 * morvane_failure_get_message().
 *
 * Returns: (transfer none): the error
 */
MORVANE_GLIB_API const GError* morvane_failure_get_error(MorvaneFailure* self);

/**
 * MorvaneProgress:
 *
 * How far a long operation is. One object is for one operation at a time.
 */
#define MORVANE_TYPE_PROGRESS (morvane_progress_get_type())
MORVANE_GLIB_API
G_DECLARE_FINAL_TYPE(MorvaneProgress, morvane_progress, MORVANE, PROGRESS, GObject)

/**
 * morvane_progress_new:
 *
 * Makes an object for an operation that is about to begin.
 *
 * Returns: (transfer full): the object
 */
MORVANE_GLIB_API MorvaneProgress* morvane_progress_new(void);

/**
 * morvane_progress_get_reports: (get-property reports)
 * @self: a progress
 *
 * How often the service has said that it is at work. A bar can pulse with each notification.
 *
 * Returns: the number
 */
MORVANE_GLIB_API guint morvane_progress_get_reports(MorvaneProgress* self);

/**
 * morvane_progress_get_items_done: (get-property items-done)
 * @self: a progress
 *
 * How many files and folders have what they inherit now, in a propagation. The service tells it a
 * few times a second, and of the whole work when the operation ends. If the helper does the work
 * again, it counts anew.
 *
 * Returns: the number
 */
MORVANE_GLIB_API guint64 morvane_progress_get_items_done(MorvaneProgress* self);

/**
 * morvane_progress_get_items_failed: (get-property items-failed)
 * @self: a progress
 *
 * For how many files and folders a propagation has failed, or could not reach them.
 *
 * Returns: the number
 */
MORVANE_GLIB_API guint64 morvane_progress_get_items_failed(MorvaneProgress* self);

/**
 * morvane_progress_get_failures: (get-property failures)
 * @self: a progress
 *
 * For which items the operation failed, once it has ended with an error. At most a thousand of them
 * are named; morvane_progress_get_items_failed() counts all.
 *
 * Returns: (transfer none): a list of #MorvaneFailure, the same at each call
 */
MORVANE_GLIB_API GListModel* morvane_progress_get_failures(MorvaneProgress* self);

G_END_DECLS

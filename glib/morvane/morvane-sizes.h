/* SPDX-License-Identifier: MIT */
#pragma once

#include <morvane/morvane-base.h>

G_BEGIN_DECLS

/**
 * MorvaneSize:
 *
 * An item, and how large it is with all that is below it.
 */
#define MORVANE_TYPE_SIZE (morvane_size_get_type())
MORVANE_GLIB_API
G_DECLARE_FINAL_TYPE(MorvaneSize, morvane_size, MORVANE, SIZE, GObject)

/**
 * morvane_size_get_file: (get-property file)
 * @self: a size
 *
 * The item.
 *
 * Returns: (transfer none): the item
 */
MORVANE_GLIB_API GFile* morvane_size_get_file(MorvaneSize* self);

/**
 * morvane_size_get_size: (get-property size)
 * @self: a size
 *
 * The size in bytes, so far while the operation runs.
 *
 * Returns: the size, or -1 if it is not known
 */
MORVANE_GLIB_API gint64 morvane_size_get_size(MorvaneSize* self);

/**
 * morvane_size_dup_text: (get-property text)
 * @self: a size
 *
 * The size as people read it: "1.5 KB".
 *
 * Returns: (transfer full): the text
 */
MORVANE_GLIB_API char* morvane_size_dup_text(MorvaneSize* self);

/**
 * morvane_size_dup_detail: (get-property detail)
 * @self: a size
 *
 * The size with the number of bytes: "1.5 KB (1,536 bytes)".
 *
 * Returns: (transfer full): the text
 */
MORVANE_GLIB_API char* morvane_size_dup_detail(MorvaneSize* self);

/**
 * MorvaneSizes:
 *
 * The sizes of items: a #GListModel of #MorvaneSize, one for each item, in their order. They grow
 * while morvane_file_client_measure_async() runs.
 */
#define MORVANE_TYPE_SIZES (morvane_sizes_get_type())
MORVANE_GLIB_API
G_DECLARE_FINAL_TYPE(MorvaneSizes, morvane_sizes, MORVANE, SIZES, GObject)

/**
 * morvane_sizes_new:
 * @files: (array length=n_files): the items
 * @n_files: how many they are
 *
 * Makes a list of items, whose sizes are not known yet.
 *
 * Returns: (transfer full): the list
 */
MORVANE_GLIB_API MorvaneSizes* morvane_sizes_new(GFile** files, guint n_files);

/**
 * morvane_sizes_get_busy: (get-property busy)
 * @self: a list of sizes
 *
 * Whether the sizes are being added up now.
 *
 * Returns: whether they are
 */
MORVANE_GLIB_API gboolean morvane_sizes_get_busy(MorvaneSizes* self);

/**
 * morvane_sizes_get_total: (get-property total)
 * @self: a list of sizes
 *
 * The sum of those that are known, in bytes.
 *
 * Returns: the sum
 */
MORVANE_GLIB_API gint64 morvane_sizes_get_total(MorvaneSizes* self);

G_END_DECLS

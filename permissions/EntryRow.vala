// SPDX-License-Identifier: MIT
namespace Permissions {

/* The texts of an entry side by side, or those above them. A list makes some hundred rows, so that each is one widget,
   and lays out its texts when it is first seen. */
public class EntryRow : Gtk.Widget {
    // Parts of the width for whom the entry is for, its rule, its permissions, what it applies to, and whether it is
    // inherited.
    private const double[] WIDTHS = { 0.31, 0.11, 0.23, 0.22, 0.13 };
    private const int GAP = 8;
    private const int LEAST_WIDTH = 400;
    private const int PADDING = 6;

    public string[] texts = {};
    private Pango.Layout?[] layouts = new Pango.Layout?[WIDTHS.length];

    public EntryRow() {
        Object(accessible_role: Gtk.AccessibleRole.LABEL, has_tooltip: true);
        query_tooltip.connect((_x, _y, _keyboard, tooltip) => {
            tooltip.set_text(string.joinv("\n", texts));
            return is_cut;
        });
    }

    /* Whether there was no room for all of some text. */
    public bool is_cut {
        get {
            foreach (var layout in layouts) {
                if (layout != null && layout.is_ellipsized())
                    return true;
            }
            return false;
        }
    }

    public void show_texts(string[] texts) {
        this.texts = texts;
        layouts = new Pango.Layout?[WIDTHS.length];
        name_for_all(this, string.joinv("; ", texts));
        queue_draw();
    }

    public override Gtk.SizeRequestMode get_request_mode() {
        return Gtk.SizeRequestMode.CONSTANT_SIZE;
    }

    public override void measure(Gtk.Orientation orientation, int for_size, out int minimum, out int natural,
                                 out int minimum_baseline, out int natural_baseline) {
        var metrics = get_pango_context().get_metrics(null, null);
        var height = (metrics.get_ascent() + metrics.get_descent() + Pango.SCALE - 1) / Pango.SCALE + 2 * PADDING;
        minimum = natural = orientation == Gtk.Orientation.VERTICAL ? height : LEAST_WIDTH;
        minimum_baseline = natural_baseline = -1;
    }

    public override void snapshot(Gtk.Snapshot snapshot) {
        var is_rtl = get_direction() == Gtk.TextDirection.RTL;
        var all = get_width() - GAP;
        double start = GAP;
        for (var i = 0; i < texts.length; ++i) {
            var width = all * WIDTHS[i];
            if (layouts[i] == null) {
                layouts[i] = create_pango_layout(texts[i]);
                layouts[i].set_ellipsize(Pango.EllipsizeMode.END);
            }
            layouts[i].set_width((int) double.max(0, width - GAP) * Pango.SCALE);
            Pango.Rectangle shown;
            layouts[i].get_pixel_extents(null, out shown);
            var x = is_rtl ? get_width() - start - shown.width : start;
            snapshot.save();
            snapshot.translate(Graphene.Point() { x = (float) (x - shown.x), y = PADDING });
            snapshot.append_layout(layouts[i], get_style_context().get_color());
            snapshot.restore();
            start += width;
        }
    }
}

}

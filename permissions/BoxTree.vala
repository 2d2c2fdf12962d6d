// SPDX-License-Identifier: MIT
namespace Permissions {

/* Check boxes in groups. One that cannot be switched is grey, and says why. */
public class BoxTree : Adw.Bin {
    private bool with_reasons;
    private Gtk.Box rows = new Gtk.Box(Gtk.Orientation.VERTICAL, 2) {
        margin_top = 6, margin_bottom = 6, margin_start = 6, margin_end = 6
    };

    /* A tree that is only shown gives no reasons. */
    public BoxTree(string name, bool with_reasons) {
        this.with_reasons = with_reasons;
        name_for_all(rows, name);
        child = new Gtk.ScrolledWindow() {
            child = rows, vexpand = true, has_frame = true, min_content_height = 180,
            hscrollbar_policy = Gtk.PolicyType.NEVER
        };
    }

    /* Shows these groups, a list of SharedPermission, or none. */
    public void show_boxes(ListModel? groups) {
        var row = (BoxRow?) rows.get_first_child();
        for (uint i = 0; groups != null && i != groups.get_n_items(); ++i) {
            var group = (SharedPermission) groups.get_item(i);
            row = show_box(row, group, 0);
            for (uint j = 0; group.children != null && j != group.children.get_n_items(); ++j)
                row = show_box(row, (SharedPermission) group.children.get_item(j), 1);
        }
        while (row != null) {
            var next = (BoxRow?) row.get_next_sibling();
            rows.remove(row);
            row = next;
        }
    }

    /* Shows a box in this row, or in a new one at the end. Returns the row behind it. */
    private BoxRow? show_box(BoxRow? row, SharedPermission permission, int level) {
        var shown = row;
        if (shown == null) {
            shown = new BoxRow(with_reasons);
            rows.append(shown);
        }
        shown.show_box(permission, level);
        return (BoxRow?) shown.get_next_sibling();
    }
}

private class BoxRow : Gtk.Box {
    private const int INDENT = 28;

    private bool with_reasons;
    private SharedPermission? permission = null;
    private ulong handler = 0;
    private Gtk.CheckButton check = new Gtk.CheckButton();
    private Gtk.Label? reason = null;

    public BoxRow(bool with_reasons) {
        Object(orientation: Gtk.Orientation.HORIZONTAL, spacing: 12);
        this.with_reasons = with_reasons;
        append(check);
        check.toggled.connect(() => {
            // The user has clicked: the model decides what that means.
            if (permission != null && !shows(permission.state)) {
                permission.toggle();
                show_state();
            }
        });
    }

    public void show_box(SharedPermission permission, int level) {
        if (this.permission != null)
            this.permission.disconnect(handler);
        this.permission = permission;
        handler = permission.changed.connect(show_state);
        check.margin_start = level * INDENT;
        check.label = permission.name;
        show_state();
    }

    public override void dispose() {
        if (permission != null)
            permission.disconnect(handler);
        permission = null;
        base.dispose();
    }

    private bool shows(Morvane.State state) {
        return check.active == (state == Morvane.State.ON) && check.inconsistent == (state == Morvane.State.MIXED);
    }

    private void show_state() {
        var state = permission.state;
        check.inconsistent = state == Morvane.State.MIXED;
        if (check.active != (state == Morvane.State.ON))
            check.active = state == Morvane.State.ON;
        var why = permission.reason;
        check.sensitive = why == null;
        show_reason(with_reasons ? why : null);
    }

    private void show_reason(string? why) {
        if (reason == null && why == null)
            return;
        if (reason == null) {
            reason = new Gtk.Label(null) { xalign = 1, hexpand = true, ellipsize = Pango.EllipsizeMode.END };
            reason.add_css_class("caption");
            reason.add_css_class("dim-label");
            append(reason);
        }
        reason.label = reason.tooltip_text = why ?? "";
        reason.visible = why != null;
        check.update_property(Gtk.AccessibleProperty.DESCRIPTION, why ?? "", -1);
    }
}

}

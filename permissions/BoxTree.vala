// SPDX-License-Identifier: MIT
namespace Permissions {

/* Check boxes in groups. One that cannot be switched is grey, and says why. */
public class BoxTree : Adw.Bin {
    private Gtk.NoSelection rows = new Gtk.NoSelection(null);
    private bool with_reasons;

    /* A tree that is only shown gives no reasons. */
    public BoxTree(string name, bool with_reasons) {
        this.with_reasons = with_reasons;
        var factory = new Gtk.SignalListItemFactory();
        factory.setup.connect(set_up);
        factory.bind.connect(bind);
        factory.unbind.connect(unbind);
        var view = new Gtk.ListView(rows, factory);
        name_for_all(view, name);
        child = new Gtk.ScrolledWindow() { child = view, vexpand = true, has_frame = true, min_content_height = 180 };
    }

    public void show_boxes(ListModel? groups) {
        rows.model = groups == null ? null : new Gtk.TreeListModel(groups, false, true, item => {
            return ((Morvane.Permission) item).get_children();
        });
    }

    private void set_up(Object object) {
        var item = (Gtk.ListItem) object;
        var check = new Gtk.CheckButton();
        var reason = new Gtk.Label(null) { xalign = 1, hexpand = true, ellipsize = Pango.EllipsizeMode.END };
        reason.add_css_class("caption");
        reason.add_css_class("dim-label");
        var box = new Gtk.Box(Gtk.Orientation.HORIZONTAL, 12);
        box.append(check);
        box.append(reason);
        item.child = new Gtk.TreeExpander() { child = box };
        item.activatable = item.selectable = false;
        check.toggled.connect(() => {
            var row = item.item as Gtk.TreeListRow;
            var permission = row == null ? null : row.item as Morvane.Permission;
            // The user has clicked: the model decides what that means.
            if (permission != null && !shows(check, permission.state)) {
                permission.toggle();
                show_state(check, permission);
            }
        });
    }

    private static bool shows(Gtk.CheckButton check, Morvane.State state) {
        return check.active == (state == Morvane.State.ON) && check.inconsistent == (state == Morvane.State.MIXED);
    }

    private static void show_state(Gtk.CheckButton check, Morvane.Permission permission) {
        check.inconsistent = permission.state == Morvane.State.MIXED;
        if (check.active != (permission.state == Morvane.State.ON))
            check.active = permission.state == Morvane.State.ON;
    }

    private void bind(Object object) {
        var item = (Gtk.ListItem) object;
        var row = (Gtk.TreeListRow) item.item;
        var permission = (Morvane.Permission) row.item;
        var expander = (Gtk.TreeExpander) item.child;
        var check = (Gtk.CheckButton) expander.child.get_first_child();
        var reason = (Gtk.Label) expander.child.get_last_child();
        expander.list_row = row;
        check.label = permission.name;
        show_state(check, permission);
        show_sensitive(check, reason, permission);
        var state = permission.notify["state"].connect(() => show_state(check, permission));
        var sensitive = permission.notify["sensitive"].connect(() => show_sensitive(check, reason, permission));
        item.set_data("permission", permission);
        item.set_data("state", state);
        item.set_data("sensitive", sensitive);
    }

    private void unbind(Object object) {
        var item = (Gtk.ListItem) object;
        // The row may have gone from the tree, and knows its permission no more.
        var permission = item.get_data<Morvane.Permission>("permission");
        permission.disconnect(item.get_data<ulong>("state"));
        permission.disconnect(item.get_data<ulong>("sensitive"));
        ((Gtk.TreeExpander) item.child).list_row = null;
    }

    private void show_sensitive(Gtk.CheckButton check, Gtk.Label reason, Morvane.Permission permission) {
        check.sensitive = permission.sensitive;
        var text = with_reasons ? permission.reason : null;
        reason.label = text ?? "";
        reason.visible = text != null;
        reason.tooltip_text = text;
        check.update_property(Gtk.AccessibleProperty.DESCRIPTION, text ?? "", -1);
    }
}

}

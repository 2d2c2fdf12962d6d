// SPDX-License-Identifier: MIT
// A Permissions dialog with GTK: shows the entries of a file or folder, and what the chosen one allows as a menu and as
// check boxes; adds entries, and saves them.
//     valac --pkg=gtk4 --pkg=morvaneoperation-glib-1.0 permissions_dialog.vala && ./permissions_dialog PATH

class Dialog : Gtk.ApplicationWindow {
    private Morvane.FileClient client = new Morvane.FileClient();
    private File file;
    private Morvane.Acl acl;
    private Gtk.SingleSelection entries = new Gtk.SingleSelection(null);
    private Gtk.DropDown choices = new Gtk.DropDown(null, new Gtk.PropertyExpression(typeof(Morvane.Choice), null, "name"));
    private Binding? chosen = null;
    private Gtk.NoSelection boxes = new Gtk.NoSelection(null);
    private Gtk.Entry who = new Gtk.Entry() { placeholder_text = "Name of a user or group", hexpand = true };
    private Gtk.Label status = new Gtk.Label("") { xalign = 0, wrap = true };

    public Dialog(Gtk.Application application, File file) {
        Object(application: application, title: file.get_basename(), default_width: 520, default_height: 640);
        this.file = file;
        var page = new Gtk.Box(Gtk.Orientation.VERTICAL, 12) {
            margin_top = 12, margin_bottom = 12, margin_start = 12, margin_end = 12
        };
        page.append(new Gtk.ListView(entries, entry_rows()));
        choices.update_property(Gtk.AccessibleProperty.LABEL, "Permissions", -1);
        page.append(choices);
        page.append(new Gtk.ScrolledWindow() { child = new Gtk.ListView(boxes, box_rows()), vexpand = true });
        var buttons = new Gtk.Box(Gtk.Orientation.HORIZONTAL, 12);
        who.update_property(Gtk.AccessibleProperty.LABEL, who.placeholder_text, -1);
        buttons.append(who);
        var add_button = new Gtk.Button.with_label("Add");
        add_button.clicked.connect(() => add.begin());
        buttons.append(add_button);
        var save_button = new Gtk.Button.with_label("Save");
        save_button.clicked.connect(() => save.begin());
        buttons.append(save_button);
        page.append(buttons);
        page.append(status);
        child = page;
        entries.notify["selected-item"].connect(() => {
            if (entries.selected_item != null)
                show_entry((Morvane.AclEntry) entries.selected_item);
        });
        read.begin();
    }

    // The menu has what the list can hold, and follows the entry as the boxes do.
    private void show_entry(Morvane.AclEntry entry) {
        boxes.model = new Gtk.TreeListModel(entry.permissions, false, true, box => ((Morvane.Permission) box).get_children());
        if (chosen != null)
            chosen.unbind();
        choices.model = new Gtk.FilterListModel(entry.list_permission_groups(),
                                                new Gtk.CustomFilter(each => ((Morvane.Choice) each).reason == null));
        chosen = entry.bind_property("permission-group", choices, "selected",
                                     BindingFlags.SYNC_CREATE | BindingFlags.BIDIRECTIONAL, (_, from, ref to) => {
            for (uint i = 0; i != choices.model.get_n_items(); ++i)
                if (((Morvane.Choice) choices.model.get_item(i)).code == from.get_enum())
                    to.set_uint(i);
            return true;
        }, (_, from, ref to) => {
            to.set_enum(((Morvane.Choice) choices.selected_item).code);
            return true;
        });
    }

    // A row follows its entry: whatever was clicked, it shows what the entry has now.
    private static Gtk.ListItemFactory entry_rows() {
        var factory = new Gtk.SignalListItemFactory();
        factory.bind.connect(object => {
            var item = (Gtk.ListItem) object;
            var label = new Gtk.Label(null) { xalign = 0 };
            item.item.bind_property("permissions-text", label, "label", BindingFlags.SYNC_CREATE, (binding, from, ref to) => {
                var entry = (Morvane.AclEntry) binding.source;
                to.set_string("%s: %s %s".printf(entry.who, entry.rule_text, entry.permissions_text));
                return true;
            });
            item.child = label;
        });
        return factory;
    }

    private static Gtk.ListItemFactory box_rows() {
        var factory = new Gtk.SignalListItemFactory();
        factory.bind.connect(object => {
            var item = (Gtk.ListItem) object;
            var row = (Gtk.TreeListRow) item.item;
            var box = (Morvane.Permission) row.item;
            var check = new Gtk.CheckButton.with_label(box.name);
            item.child = new Gtk.TreeExpander() { list_row = row, child = check };
            box.bind_property("state", check, "active", BindingFlags.SYNC_CREATE, (_, from, ref to) => {
                check.inconsistent = from.get_enum() == Morvane.State.MIXED;
                to.set_boolean(from.get_enum() == Morvane.State.ON);
                return true;
            });
            // What the list cannot hold is grey, with the reason.
            box.bind_property("sensitive", check, "sensitive", BindingFlags.SYNC_CREATE);
            box.bind_property("reason", check, "tooltip-text", BindingFlags.SYNC_CREATE);
            check.toggled.connect(() => {
                if (check.active != (box.state == Morvane.State.ON))
                    box.toggle();
            });
        });
        return factory;
    }

    private async void read() {
        try {
            entries.model = acl = yield client.read_acl_async(file, Morvane.Privilege.WHEN_REFUSED, null);
        } catch (Error error) {
            status.label = error.message;
        }
    }

    private async void add() {
        try {
            var found = yield client.search_identities_async(who.text, null);
            if (found.get_n_items() != 0)
                acl.add((Morvane.Identity) found.get_item(0)).permission_group = Morvane.PermissionGroup.READ;
        } catch (Error error) {
            status.label = error.message;
        }
    }

    private async void save() {
        try {
            Morvane.Acl nearest;
            var losses = yield client.list_losses_async(acl, null, out nearest);
            if (losses.get_n_items() != 0) {
                var loss = (Morvane.Loss) losses.get_item(0);
                entries.model = acl = nearest;  // saved when the user agrees, by another click
                status.label = "This could not be held, and is left out: %s: %s".printf(loss.who, loss.text);
                return;
            }
            yield client.write_acl_async(acl, Morvane.Privilege.WHEN_REFUSED, null);
            status.label = "Saved.";
            yield read();
        } catch (Error error) {
            status.label = error.message;
        }
    }
}

int main(string[] arguments) {
    var application = new Gtk.Application(null, ApplicationFlags.HANDLES_OPEN);
    application.open.connect((files, _) => {
        foreach (var file in files)
            new Dialog(application, file).present();
    });
    return application.run(arguments);
}

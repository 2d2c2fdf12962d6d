// SPDX-License-Identifier: MIT
namespace Permissions {

/* The permissions of one file or folder. */
public class Window : Adw.ApplicationWindow {
    private const ActionEntry[] ACTIONS = {
        { "add", add },
        { "remove", remove },
        { "apply", apply_all },
        { "reload", reload_all },
        { "propagate", propagate_all },
        { "access", show_access }
    };

    private Morvane.FileClient client;
    private File file;
    private Morvane.Acl? acl = null;
    private FileMonitor? monitor = null;
    private bool closing = false;

    private Adw.WindowTitle heading = new Adw.WindowTitle("", "");
    private Gtk.Stack stack = new Gtk.Stack();
    private Adw.StatusPage problem = new Adw.StatusPage() { icon_name = "dialog-error-symbolic" };
    private Adw.ToastOverlay toasts = new Adw.ToastOverlay();
    private Gtk.InfoBar changed_bar = new Gtk.InfoBar() { revealed = false, message_type = Gtk.MessageType.WARNING };
    private EntryTable table = new EntryTable();
    private ChoiceMenu rules = new ChoiceMenu(_("Rule"));
    private ChoiceMenu groups = new ChoiceMenu(_("Permissions"));
    private ChoiceMenu applies = new ChoiceMenu(_("Applies to"));
    private BoxTree boxes = new BoxTree(_("Permissions of the entry"), true);
    private Morvane.AclEntry? shown = null;
    private ulong shown_handler = 0;
    private uint menus_source = 0;

    public Window(Gtk.Application application, Morvane.FileClient client, File file) {
        Object(application: application, default_width: 760, default_height: 760);
        this.client = client;
        this.file = file;
        heading.title = title = file.get_basename() ?? file.get_parse_name();
        add_action_entries(ACTIONS, this);
        build();
        watch();
        load.begin();
    }

    private void build() {
        var add_button = new Gtk.Button.from_icon_name("list-add-symbolic") {
            action_name = "win.add", tooltip_text = _("Add an Entry")
        };
        name_for_all(add_button, _("Add an Entry"));
        var remove_button = new Gtk.Button.from_icon_name("list-remove-symbolic") {
            action_name = "win.remove", tooltip_text = _("Remove the Entry")
        };
        name_for_all(remove_button, _("Remove the Entry"));
        var apply_button = new Gtk.Button.with_label(_("Apply")) { action_name = "win.apply" };
        apply_button.add_css_class("suggested-action");
        var menu = new Menu();
        menu.append(_("Apply to Everything Inside…"), "win.propagate");
        menu.append(_("What Somebody Can Do…"), "win.access");
        menu.append(_("Reload"), "win.reload");
        var menu_button = new Gtk.MenuButton() { icon_name = "open-menu-symbolic", menu_model = menu };
        name_for_all(menu_button, _("Menu"));
        var header = new Adw.HeaderBar() { title_widget = heading };
        header.pack_start(add_button);
        header.pack_start(remove_button);
        header.pack_end(menu_button);
        header.pack_end(apply_button);

        changed_bar.add_child(new Gtk.Label(_("Another program has changed the permissions.")) { xalign = 0, wrap = true });
        changed_bar.add_button(_("Reload"), Gtk.ResponseType.ACCEPT);
        changed_bar.add_button(_("Keep Mine"), Gtk.ResponseType.REJECT);
        changed_bar.response.connect(response => {
            changed_bar.revealed = false;
            if (response == Gtk.ResponseType.ACCEPT)
                load.begin();
            else
                keep.begin();
        });

        var menus = new Gtk.Box(Gtk.Orientation.HORIZONTAL, 18);
        menus.append(labelled(_("_Rule"), rules));
        menus.append(labelled(_("_Permissions"), groups));
        menus.append(labelled(_("Applies _to"), applies));
        var page = new Gtk.Box(Gtk.Orientation.VERTICAL, 12) {
            margin_top = 12, margin_bottom = 12, margin_start = 12, margin_end = 12
        };
        page.append(table);
        page.append(menus);
        page.append(boxes);
        stack.add_named(new Gtk.Spinner() { spinning = true, halign = Gtk.Align.CENTER, width_request = 32 }, "wait");
        stack.add_named(page, "list");
        stack.add_named(problem, "problem");
        toasts.child = stack;

        var content = new Gtk.Box(Gtk.Orientation.VERTICAL, 0);
        content.append(header);
        content.append(changed_bar);
        content.append(toasts);
        this.content = content;

        table.selection.notify["selected-item"].connect(show_entry);
        rules.picked.connect(code => { shown.rule = (Morvane.Rule) code; });
        groups.picked.connect(code => { shown.permission_group = (Morvane.PermissionGroup) code; });
        applies.picked.connect(code => { shown.applies_to = code; });
        close_request.connect(() => {
            if (closing || acl == null || !acl.modified)
                return false;
            ask_to_close.begin();
            return true;
        });
        set_enabled();
    }

    private static Gtk.Widget labelled(string name, Gtk.Widget menu) {
        var box = new Gtk.Box(Gtk.Orientation.HORIZONTAL, 6);
        box.append(new Gtk.Label.with_mnemonic(name) { mnemonic_widget = menu });
        box.append(menu);
        return box;
    }

    private void set_enabled() {
        var has_list = acl != null && stack.visible_child_name == "list";
        ((SimpleAction) lookup_action("add")).set_enabled(has_list);
        ((SimpleAction) lookup_action("remove")).set_enabled(has_list && shown != null && shown.keep_reason == null &&
                                                             !shown.inherited);
        ((SimpleAction) lookup_action("apply")).set_enabled(has_list && acl.modified);
        ((SimpleAction) lookup_action("propagate")).set_enabled(has_list && acl.folder);
        ((SimpleAction) lookup_action("access")).set_enabled(has_list);
    }

    private void show_entry() {
        if (shown != null)
            shown.disconnect(shown_handler);
        shown = table.chosen;
        boxes.show_boxes(shown == null ? null : shown.permissions);
        if (shown != null) {
            shown_handler = shown.notify.connect(show_menus_soon);
            show_menus();
        }
        set_enabled();
    }

    /* Once for all that a click has changed, and not while the menu that was clicked is at work. */
    private void show_menus_soon() {
        if (menus_source == 0)
            menus_source = Idle.add(() => {
                menus_source = 0;
                show_menus();
                return Source.REMOVE;
            });
    }

    private void show_menus() {
        if (shown == null)
            return;
        rules.show_choices(shown.list_rules(), shown.rule);
        groups.show_choices(shown.list_permission_groups(), shown.permission_group);
        applies.show_choices(shown.list_applies_to(), shown.applies_to);
    }

    private async bool load() {
        try {
            var read = yield client.read_acl_async(file, Morvane.Privilege.WHEN_REFUSED, null);
            show_list(read);
            return true;
        } catch (Error error) {
            problem.title = _("The Permissions Cannot Be Read");
            problem.description = Markup.escape_text(error.message);
            stack.visible_child_name = "problem";
            set_enabled();
            return false;
        }
    }

    private void show_list(Morvane.Acl read) {
        var position = table.selection.selected;
        acl = read;
        acl.notify["modified"].connect(set_enabled);
        heading.subtitle = "%s · %s".printf(acl.folder ? _("Folder") : _("File"), acl.storage_text ?? "");
        table.selection.model = acl;
        table.selection.selected = position < acl.get_n_items() ? position : 0;
        if (stack.visible_child_name != "list") {
            stack.visible_child_name = "list";
            table.focus_rows();
        }
        changed_bar.revealed = false;
        set_enabled();
    }

    private void watch() {
        try {
            monitor = file.monitor(FileMonitorFlags.NONE, null);
            monitor.changed.connect(() => look_again.begin());
        } catch (Error error) {
            // Where nothing can be watched, writing still finds out what has changed.
        }
    }

    private async void look_again() {
        try {
            var now = yield client.read_acl_async(file, Morvane.Privilege.NEVER, null);
            if (acl == null || acl.is_current(now))
                return;
            if (acl.modified)
                changed_bar.revealed = true;
            else
                show_list(now);
        } catch (Error error) {
            // It may be gone, or not this user's to read.
        }
    }

    /* Has what another program wrote be replaced by what is edited here. */
    private async void keep() {
        try {
            acl.adopt(yield client.read_acl_async(file, Morvane.Privilege.WHEN_REFUSED, null));
        } catch (Error error) {
            yield tell(_("The Permissions Cannot Be Read"), error.message);
        }
    }

    private void add() {
        var people = new PeopleWindow(this, client, _("Add an Entry For"), _("Add"));
        people.picked.connect(identity => {
            var entry = acl.add(identity);
            for (uint i = 0; i != acl.get_n_items(); ++i) {
                if (acl.get_item(i) == entry)
                    table.selection.selected = i;
            }
        });
        people.present();
    }

    private void remove() {
        acl.remove(shown);
    }

    private void reload_all() {
        load.begin();
    }

    private void apply_all() {
        apply.begin();
    }

    /* Whether the list is what the item has now. */
    private async bool apply() {
        acl.sort();
        var written = acl;
        try {
            Morvane.Acl nearest;
            var losses = yield client.list_losses_async(acl, null, out nearest);
            if (losses.get_n_items() != 0) {
                var text = new StringBuilder();
                for (uint i = 0; i != losses.get_n_items(); ++i) {
                    var loss = (Morvane.Loss) losses.get_item(i);
                    text.append_printf("%s: %s\n", loss.who, loss.text);
                }
                var answer = yield ask(_("The File System Cannot Hold All of It"), text.str,
                                       _("_Keep Editing"), _("_Apply the Nearest"), false);
                if (!answer)
                    return false;
                written = nearest;
            }
        } catch (Error error) {
            // The service has not said what the list can hold: it refuses what it cannot.
        }
        try {
            yield client.write_acl_async(written, Morvane.Privilege.WHEN_REFUSED, null);
        } catch (Error error) {
            if (error is Morvane.Error.CHANGED)
                changed_bar.revealed = true;
            else if (!(error is Morvane.Error.DISMISSED))
                yield tell(_("The Permissions Cannot Be Changed"), error.message);
            return false;
        }
        toasts.add_toast(new Adw.Toast(_("The permissions were changed.")) { timeout = 3 });
        return yield load();
    }

    private void propagate_all() {
        propagate.begin();
    }

    private async void propagate() {
        var wanted = yield ask(_("Apply to Everything Inside?"),
                        _("Everything in “%s” gets what it inherits of these permissions. What it has now is replaced.")
                            .printf(heading.title),
                        _("_Cancel"), _("_Apply to All"), true);
        if (!wanted)
            return;
        if (acl.modified) {
            var applied = yield apply();
            if (!applied)
                return;
        }
        var progress = new Morvane.Progress();
        var cancellable = new Cancellable();
        var window = new ProgressWindow(this, progress, cancellable);
        window.present();
        string? message = null;
        try {
            yield client.propagate_acl_async(acl, Morvane.Privilege.WHEN_REFUSED, progress, cancellable);
        } catch (Error error) {
            var is_expected = (error is Morvane.Error.DISMISSED) || (error is IOError.CANCELLED);
            message = is_expected ? "" : error.message;
        }
        window.end();
        if (message == null) {
            toasts.add_toast(new Adw.Toast(_("Everything inside has its permissions.")) { timeout = 3 });
            return;
        }
        if (message == "")
            return;
        var text = new StringBuilder(message);
        for (uint i = 0; i != progress.failures.get_n_items(); ++i) {
            var failure = (Morvane.Failure) progress.failures.get_item(i);
            if (failure.message != message)
                text.append_printf("\n%s: %s", failure.file == null ? "" : failure.file.get_parse_name(), failure.message);
        }
        yield tell(_("Not Everything Was Changed"), text.str);
    }

    private void show_access() {
        var people = new PeopleWindow(this, client, _("What Can They Do?"), _("Show"));
        people.picked.connect(identity => access_of.begin(identity));
        people.present();
    }

    private async void access_of(Morvane.Identity identity) {
        try {
            var access = yield client.effective_access_async(file, identity, Morvane.Privilege.WHEN_REFUSED, null);
            var tree = new BoxTree(_("Effective access"), false) {
                margin_top = 12, margin_bottom = 12, margin_start = 12, margin_end = 12
            };
            tree.show_boxes(access);
            var content = new Gtk.Box(Gtk.Orientation.VERTICAL, 0);
            content.append(new Adw.HeaderBar());
            content.append(tree);
            var window = new Adw.Window() {
                transient_for = this, modal = true, title = _("What %s Can Do").printf(identity.name),
                default_width = 380, default_height = 520, content = content
            };
            window.present();
        } catch (Error error) {
            if (!(error is Morvane.Error.DISMISSED))
                yield tell(_("The Access Cannot Be Determined"), error.message);
        }
    }

    private async void ask_to_close() {
        var wanted = yield ask(_("Discard the Changes?"), _("The permissions were edited and not applied."),
                               _("_Keep Editing"), _("_Discard"), true);
        if (wanted) {
            closing = true;
            close();
        }
    }

    private async bool ask(string question, string text, string no, string? yes, bool destroys) {
        var window = new QuestionWindow(this, question, text, no, yes, destroys);
        bool answer = false;
        window.answered.connect(is_yes => {
            answer = is_yes;
            ask.callback();
        });
        window.present();
        yield;
        return answer;
    }

    private async void tell(string problem, string text) {
        yield ask(problem, text, _("_Close"), null, false);
    }
}

}

// SPDX-License-Identifier: MIT
namespace Permissions {

/* The permissions of one or more files and folders. */
public class Window : Adw.ApplicationWindow {
    private const ActionEntry[] ACTIONS = {
        { "add", add },
        { "remove", remove },
        { "apply", apply_all },
        { "reload", reload_all },
        { "propagate", propagate_all },
        { "access", show_access }
    };
    /* In milliseconds. Lists are nearly always read sooner, and the window has them when it is first drawn. */
    private const uint LONGEST_WAIT = 300;

    private Items items;
    private bool closing = false;
    private bool was_shown = false;

    private Adw.WindowTitle heading = new Adw.WindowTitle("", "");
    private Gtk.Stack stack = new Gtk.Stack();
    private Adw.StatusPage? problem = null;
    private Adw.ToastOverlay toasts = new Adw.ToastOverlay();
    private Gtk.Box content_box = new Gtk.Box(Gtk.Orientation.VERTICAL, 0);
    private Gtk.InfoBar? changed_bar = null;
    private EntryTable table = new EntryTable();
    private ChoiceMenu rules = new ChoiceMenu(_("Rule"), Aspect.RULE);
    private ChoiceMenu groups = new ChoiceMenu(_("Permissions"), Aspect.PERMISSIONS);
    private ChoiceMenu applies = new ChoiceMenu(_("Applies to"), Aspect.APPLIES_TO);
    private BoxTree boxes = new BoxTree(_("Permissions of the entry"), true);
    private SharedEntry? shown = null;
    private ulong shown_handler = 0;

    public Window(Gtk.Application application, Items items) {
        Object(application: application, default_width: 760, default_height: 760);
        this.items = items;
        items.replaced.connect(show_list);
        items.changed_elsewhere.connect(() => show_changed_bar(true));
        var count = items.files.length;
        heading.title = title = count == 1 ? items.name_of(items.files[0])
                                           : ngettext("%u Item", "%u Items", count).printf(count);
        add_action_entries(ACTIONS, this);
        build();
        load.begin(true);
        items.watch();
        Timeout.add(LONGEST_WAIT, () => {
            show_for_the_first_time();
            return Source.REMOVE;
        });
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
        var menu_button = new Gtk.MenuButton() { icon_name = "open-menu-symbolic" };
        menu_button.set_create_popup_func(() => {
            var menu = new Menu();
            menu.append(_("Apply to Everything Inside…"), "win.propagate");
            menu.append(_("What Somebody Can Do…"), "win.access");
            menu.append(_("Reload"), "win.reload");
            menu_button.menu_model = menu;
        });
        name_for_all(menu_button, _("Menu"));
        var header = new Adw.HeaderBar() { title_widget = heading };
        header.pack_start(add_button);
        header.pack_start(remove_button);
        header.pack_end(menu_button);
        header.pack_end(apply_button);

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
        stack.add_named(page, "list");
        toasts.child = stack;
        content_box.append(header);
        content_box.append(toasts);
        content = content_box;

        table.selection.notify["selected-item"].connect(show_entry);
        close_request.connect(() => {
            if (closing || items.shared == null || !items.shared.modified)
                return false;
            ask_to_close.begin();
            return true;
        });
        set_enabled();
    }

    private static Gtk.Widget labelled(string name, ChoiceMenu menu) {
        var box = new Gtk.Box(Gtk.Orientation.HORIZONTAL, 6);
        box.append(new Gtk.Label.with_mnemonic(name) { mnemonic_widget = menu.button });
        box.append(menu);
        return box;
    }

    private void show_for_the_first_time() {
        if (was_shown)
            return;  // and may be closed by now
        was_shown = true;
        // A focus that comes later is faded in: ten more frames.
        table.focus_rows();
        present();
    }

    private void set_enabled() {
        var has_list = items.shared != null;
        var can_remove = has_list && shown != null && shown.keep_reason == null && !shown.inherited;
        ((SimpleAction) lookup_action("add")).set_enabled(has_list);
        ((SimpleAction) lookup_action("remove")).set_enabled(can_remove);
        ((SimpleAction) lookup_action("apply")).set_enabled(has_list && items.shared.modified);
        ((SimpleAction) lookup_action("propagate")).set_enabled(has_list && items.shared.folder);
        ((SimpleAction) lookup_action("access")).set_enabled(has_list);
    }

    private void show_entry() {
        if (shown != null)
            shown.disconnect(shown_handler);
        shown = table.chosen;
        boxes.show_boxes(shown == null ? null : shown.permissions);
        if (shown != null)
            shown_handler = shown.changed.connect(show_menus);
        show_menus();
        set_enabled();
    }

    private void show_menus() {
        rules.show_entry(shown);
        groups.show_entry(shown);
        applies.show_entry(shown);
    }

    private async void load(bool first = false) {
        var problems = yield items.load();
        if (first)
            show_for_the_first_time();
        if (problems == null)
            return;
        if (items.shared != null) {
            yield tell(this, _("The Permissions of Some Items Cannot Be Read"), problems);
            return;
        }
        if (problem == null) {
            problem = new Adw.StatusPage() { icon_name = "dialog-error-symbolic" };
            problem.title = _("The Permissions Cannot Be Read");
            stack.add_named(problem, "problem");
        }
        problem.description = Markup.escape_text(problems);
        stack.visible_child_name = "problem";
    }

    private void show_list() {
        var position = table.selection.selected;
        var shared = items.shared;
        table.selection.model = shared;
        if (shared != null) {
            shared.modified_changed.connect(set_enabled);
            table.selection.selected = position < shared.get_n_items() ? position : 0;
            stack.visible_child_name = "list";
            heading.subtitle = subtitle();
        }
        show_changed_bar(false);
        set_enabled();
    }

    private string subtitle() {
        if (items.files.length == 1) {
            var acl = items.shared.acls[0];
            return "%s · %s".printf(acl.folder ? _("Folder") : _("File"), acl.storage_text ?? "");
        }
        string[] names = {};
        foreach (var acl in items.shared.acls)
            names += items.name_of(acl.file);
        return string.joinv(", ", names);
    }

    private void show_changed_bar(bool shows) {
        if (changed_bar == null && shows) {
            changed_bar = new Gtk.InfoBar() { revealed = false, message_type = Gtk.MessageType.WARNING };
            changed_bar.add_child(new Gtk.Label(_("Another program has changed the permissions.")) {
                xalign = 0, wrap = true
            });
            changed_bar.add_button(_("Reload"), Gtk.ResponseType.ACCEPT);
            changed_bar.add_button(_("Keep Mine"), Gtk.ResponseType.REJECT);
            changed_bar.response.connect(response => {
                changed_bar.revealed = false;
                if (response == Gtk.ResponseType.ACCEPT)
                    load.begin();
                else
                    keep.begin();
            });
            content_box.insert_child_after(changed_bar, content_box.get_first_child());
        }
        if (changed_bar != null)
            changed_bar.revealed = shows;
    }

    /* Has what another program wrote be replaced by what is edited here. */
    private async void keep() {
        var problems = yield items.keep();
        if (problems != null)
            yield tell(this, _("The Permissions Cannot Be Read"), problems);
    }

    private void add() {
        var people = new PeopleWindow(this, items.client, _("Add an Entry For"), _("Add"));
        people.picked.connect(identity => {
            table.selection.selected = items.shared.add(identity);
            show_entry();  // it may have been chosen before, for fewer items
        });
        people.present();
    }

    private void remove() {
        items.shared.remove(shown);
    }

    private void reload_all() {
        load.begin();
    }

    private void apply_all() {
        apply.begin();
    }

    /* Whether each item has the list that is shown. */
    private async bool apply() {
        Morvane.Acl[] nearest;
        var losses = yield items.list_losses(out nearest);
        if (losses != null) {
            var answer = yield ask(this, _("The File System Cannot Hold All of It"), losses,
                                   _("_Keep Editing"), _("_Apply the Nearest"), false);
            if (!answer)
                return false;
        }
        var problems = yield items.write(nearest);
        if (problems != null && problems != "")
            yield tell(this, _("The Permissions Cannot Be Changed"), problems);
        if (problems != null)
            return false;
        tell_done(_("The permissions were changed."));
        return true;
    }

    /* For ten seconds: some read slowly, or hear it read after something else. */
    private void tell_done(string text) {
        toasts.add_toast(new Adw.Toast(text) { timeout = 10 });
    }

    private void propagate_all() {
        propagate.begin();
    }

    private async void propagate() {
        var wanted = yield ask(this, _("Apply to Everything Inside?"),
                        _("Everything in “%s” gets what it inherits of these permissions. What it has now is replaced.")
                            .printf(heading.title),
                        _("_Cancel"), _("_Apply to All"), true);
        if (!wanted)
            return;
        if (items.shared.modified) {
            var applied = yield apply();
            if (!applied)
                return;
        }
        var work = new Propagation();
        yield work.run(this, items.client, items.shared.acls);
        if (work.failures.get_n_items() != 0 && work.failed != 0)
            new FailuresWindow(this, _("Not Everything Was Changed"), work.refusal, work.failures,
                               work.failed).present();
        else if (work.problem != null)
            yield tell(this, _("Not Everything Was Changed"), work.problem);
        else if (!work.was_stopped)
            tell_done(_("Everything inside has its permissions."));
    }

    private void show_access() {
        var people = new PeopleWindow(this, items.client, _("What Can They Do?"), _("Show"));
        people.picked.connect(identity => access_of.begin(identity));
        people.present();
    }

    private async void access_of(Morvane.Identity identity) {
        try {
            ListModel[] of_items = {};
            foreach (var acl in items.shared.acls)
                of_items += yield items.client.effective_access_async(acl.file, identity, Morvane.Privilege.WHEN_REFUSED,
                                                                      null);
            new AccessWindow(this, identity, SharedPermission.of_lists(of_items)).present();
        } catch (Error error) {
            if (!(error is Morvane.Error.DISMISSED))
                yield tell(this, _("The Access Cannot Be Determined"), error.message);
        }
    }

    private async void ask_to_close() {
        var wanted = yield ask(this, _("Discard the Changes?"), _("The permissions were edited and not applied."),
                               _("_Keep Editing"), _("_Discard"), true);
        if (wanted) {
            closing = true;
            close();
        }
    }
}

}

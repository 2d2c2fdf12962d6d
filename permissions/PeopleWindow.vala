// SPDX-License-Identifier: MIT
namespace Permissions {

/* Finds a user or group by what is typed. */
public class PeopleWindow : Adw.Window {
    public signal void picked(Morvane.Identity identity);

    private Morvane.FileClient client;
    private Gtk.SearchEntry search = new Gtk.SearchEntry() { hexpand = true };
    private Gtk.SingleSelection found = new Gtk.SingleSelection(null);
    private Gtk.Button button;
    private Cancellable? typed_on = null;

    public PeopleWindow(Gtk.Window parent, Morvane.FileClient client, string title, string action) {
        Object(transient_for: parent, modal: true, title: title, default_width: 380, default_height: 420);
        this.client = client;
        button = new Gtk.Button.with_label(action) { sensitive = false };
        button.add_css_class("suggested-action");
        button.clicked.connect(choose);
        var header = new Adw.HeaderBar();
        header.pack_end(button);

        var factory = new Gtk.SignalListItemFactory();
        factory.setup.connect(item => {
            var box = new Gtk.Box(Gtk.Orientation.HORIZONTAL, 8);
            box.append(new Gtk.Image());
            box.append(new Gtk.Label(null) { xalign = 0 });
            ((Gtk.ListItem) item).child = box;
        });
        factory.bind.connect(object => {
            var item = (Gtk.ListItem) object;
            var identity = (Morvane.Identity) item.item;
            ((Gtk.Image) item.child.get_first_child()).icon_name =
                identity.group ? "system-users-symbolic" : "avatar-default-symbolic";
            ((Gtk.Label) item.child.get_last_child()).label = identity.text;
        });
        var view = new Gtk.ListView(found, factory);
        view.activate.connect(choose);
        name_for_all(view, _("Users and groups"));
        name_for_all(search, _("Name of a user or group"));
        search.placeholder_text = _("Name of a user or group");
        search.search_changed.connect(() => look_for.begin());
        search.activate.connect(choose);
        search.stop_search.connect(close);
        search.set_key_capture_widget(this);

        var box = new Gtk.Box(Gtk.Orientation.VERTICAL, 12) {
            margin_top = 12, margin_bottom = 12, margin_start = 12, margin_end = 12
        };
        box.append(search);
        box.append(new Gtk.ScrolledWindow() { child = view, vexpand = true, has_frame = true });
        var content = new Gtk.Box(Gtk.Orientation.VERTICAL, 0);
        content.append(header);
        content.append(box);
        this.content = content;
        close_request.connect(() => {
            typed_on.cancel();
            return false;
        });
        look_for.begin();
    }

    private async void look_for() {
        if (typed_on != null)
            typed_on.cancel();
        var mine = typed_on = new Cancellable();
        try {
            var identities = yield client.search_identities_async(search.text, mine);
            if (mine.is_cancelled())
                return;
            found.model = identities;
            button.sensitive = identities.get_n_items() != 0;
        } catch (Error error) {
            // Nobody is found.
            if (!mine.is_cancelled())
                found.model = null;
        }
    }

    private void choose() {
        var identity = (Morvane.Identity?) found.selected_item;
        if (identity == null)
            return;
        picked(identity);
        close();
    }
}

}

// SPDX-License-Identifier: MIT
namespace Permissions {

/* Lists the items for which long work has failed, and why. */
public class FailuresWindow : Adw.Window {
    /* `failures` is a list of Morvane.Failure; `failed` counts them all, also those that are not listed. `refusal` is why
       they were not tried as administrator, or null. */
    public FailuresWindow(Gtk.Window parent, string title, string? refusal, ListModel failures, uint64 failed) {
        Object(transient_for: parent, modal: true, title: title, default_width: 560, default_height: 420);
        var count = "%'llu".printf(failed);
        var text = ngettext("%s item keeps what it has:", "%s items keep what they have:", (ulong) failed).printf(count);
        var factory = new Gtk.SignalListItemFactory();
        factory.setup.connect(object => {
            var item = (Gtk.ListItem) object;
            item.child = new Gtk.Label(null) { xalign = 0, wrap = true, wrap_mode = Pango.WrapMode.WORD_CHAR };
            item.activatable = item.selectable = false;
        });
        factory.bind.connect(object => {
            var item = (Gtk.ListItem) object;
            ((Gtk.Label) item.child).label = text_of((Morvane.Failure) item.item);
        });
        var view = new Gtk.ListView(new Gtk.NoSelection(failures), factory) { show_separators = true };
        name_for_all(view, title);
        var button = new Gtk.Button.with_mnemonic(_("_Close")) { halign = Gtk.Align.END };
        button.clicked.connect(close);
        var box = new Gtk.Box(Gtk.Orientation.VERTICAL, 12) {
            margin_top = 12, margin_bottom = 12, margin_start = 12, margin_end = 12
        };
        if (refusal != null)
            box.append(new Gtk.Label(refusal) { xalign = 0, wrap = true });
        box.append(new Gtk.Label(text) { xalign = 0, wrap = true });
        box.append(new Gtk.ScrolledWindow() {
            child = view, vexpand = true, has_frame = true, hscrollbar_policy = Gtk.PolicyType.NEVER
        });
        box.append(button);
        var content = new Gtk.Box(Gtk.Orientation.VERTICAL, 0);
        content.append(new Adw.HeaderBar());
        content.append(box);
        this.content = content;
        focus_widget = button;
    }

    private static string text_of(Morvane.Failure failure) {
        return failure.file == null ? failure.message : "%s: %s".printf(failure.file.get_parse_name(), failure.message);
    }
}

}

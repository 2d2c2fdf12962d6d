// SPDX-License-Identifier: MIT
namespace Permissions {

/* The entries of a list, a row each. */
public class EntryTable : Adw.Bin {
    public Gtk.SingleSelection selection { get; default = new Gtk.SingleSelection(null); }
    public SharedEntry? chosen { get { return (SharedEntry?) selection.selected_item; } }

    private Gtk.ListView view;

    construct {
        var factory = new Gtk.SignalListItemFactory();
        factory.setup.connect(item => {
            ((Gtk.ListItem) item).child = new EntryRow();
        });
        factory.bind.connect(object => {
            var item = (Gtk.ListItem) object;
            var entry = (SharedEntry) item.item;
            show_entry((EntryRow) item.child, entry);
            item.set_data("handler", entry.changed.connect(() => show_entry((EntryRow) item.child, entry)));
        });
        factory.unbind.connect(object => {
            var item = (Gtk.ListItem) object;
            item.item.disconnect(item.get_data<ulong>("handler"));
        });
        view = new Gtk.ListView(selection, factory) { show_separators = true };
        name_for_all(view, _("Entries"));

        var titles = new EntryRow();
        titles.show_texts({ _("Who"), _("Rule"), _("Permissions"), _("Applies to"), _("Inherited") });
        titles.add_css_class("heading");
        var box = new Gtk.Box(Gtk.Orientation.VERTICAL, 0);
        box.append(titles);
        box.append(new Gtk.ScrolledWindow() {
            child = view, min_content_height = 190, hscrollbar_policy = Gtk.PolicyType.NEVER
        });
        child = new Gtk.Frame(null) { child = box };
    }

    public void focus_rows() {
        view.grab_focus();
    }

    private static void show_entry(EntryRow row, SharedEntry entry) {
        row.show_texts({ entry.who, entry.rule_text, entry.permissions_text, entry.applies_to_text,
                         entry.inherited_text });
        if (entry.inherited)
            row.add_css_class("dim-label");
        else
            row.remove_css_class("dim-label");
    }
}

}

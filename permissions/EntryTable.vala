// SPDX-License-Identifier: MIT
namespace Permissions {

/* The entries of a list, a row each. */
public class EntryTable : Adw.Bin {
    public Gtk.SingleSelection selection { get; default = new Gtk.SingleSelection(null); }
    public Morvane.AclEntry? chosen { get { return (Morvane.AclEntry?) selection.selected_item; } }

    private Gtk.ColumnView view;

    construct {
        view = new Gtk.ColumnView(selection) { show_row_separators = true };
        view.append_column(column(_("Who"), "who", true));
        view.append_column(column(_("Rule"), "rule-text"));
        view.append_column(column(_("Permissions"), "permissions-text", true));
        view.append_column(column(_("Applies to"), "applies-to-text", true));
        view.append_column(column(_("Inherited"), "inherited"));
        name_for_all(view, _("Entries"));
        child = new Gtk.ScrolledWindow() {
            child = view,
            min_content_height = 190,
            has_frame = true
        };
    }

    public void focus_rows() {
        view.grab_focus();
    }

    private static Gtk.ColumnViewColumn column(string title, string property, bool expand = false) {
        var factory = new Gtk.SignalListItemFactory();
        factory.setup.connect(item => {
            ((Gtk.ListItem) item).child = new Gtk.Label(null) {
                xalign = 0,
                ellipsize = Pango.EllipsizeMode.END,
                width_chars = expand ? 14 : 6
            };
        });
        factory.bind.connect(object => {
            var item = (Gtk.ListItem) object;
            var binding = item.item.bind_property(property, item.child, "label", BindingFlags.SYNC_CREATE,
                                                  (_binding, from, ref to) => {
                to.set_string(from.holds(typeof(bool)) ? from.get_boolean() ? _("yes") : _("no") : from.get_string());
                return true;
            });
            item.set_data("binding", binding);
            item.child.add_css_class(((Morvane.AclEntry) item.item).inherited ? "dim-label" : "row-text");
        });
        factory.unbind.connect(object => {
            var item = (Gtk.ListItem) object;
            item.get_data<Binding>("binding").unbind();
            item.child.remove_css_class("dim-label");
        });
        return new Gtk.ColumnViewColumn(title, factory) { expand = expand, resizable = true };
    }
}

}

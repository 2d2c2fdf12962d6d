// SPDX-License-Identifier: MIT
namespace Permissions {

/* Shows what somebody can really do. `boxes` is a list of SharedPermission. */
public class AccessWindow : Adw.Window {
    public AccessWindow(Gtk.Window parent, Morvane.Identity identity, ListModel boxes) {
        Object(transient_for: parent, modal: true, title: _("What %s Can Do").printf(identity.name),
               default_width: 380, default_height: 520);
        var tree = new BoxTree(_("Effective access"), false) {
            margin_top = 12, margin_bottom = 12, margin_start = 12, margin_end = 12
        };
        tree.show_boxes(boxes);
        var box = new Gtk.Box(Gtk.Orientation.VERTICAL, 0);
        box.append(new Adw.HeaderBar());
        box.append(tree);
        content = box;
    }
}

}

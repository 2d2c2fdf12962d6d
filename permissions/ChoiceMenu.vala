// SPDX-License-Identifier: MIT
namespace Permissions {

/* A menu of what an entry can be. What cannot be chosen is grey, with the reason below it. */
public class ChoiceMenu : Adw.Bin {
    public signal void picked(int code);

    private Gtk.DropDown menu = new Gtk.DropDown(null, new Gtk.PropertyExpression(typeof(Morvane.Choice), null, "name"));
    private bool updating = false;

    public ChoiceMenu(string name) {
        var factory = new Gtk.SignalListItemFactory();
        factory.setup.connect(item => {
            var box = new Gtk.Box(Gtk.Orientation.VERTICAL, 0);
            box.append(new Gtk.Label(null) { xalign = 0 });
            var reason = new Gtk.Label(null) { xalign = 0, wrap = true, max_width_chars = 30 };
            reason.add_css_class("caption");
            box.append(reason);
            ((Gtk.ListItem) item).child = box;
        });
        factory.bind.connect(object => {
            var item = (Gtk.ListItem) object;
            var choice = (Morvane.Choice) item.item;
            var text = (Gtk.Label) item.child.get_first_child();
            var reason = (Gtk.Label) item.child.get_last_child();
            text.label = choice.name;
            reason.label = choice.reason ?? "";
            reason.visible = choice.reason != null;
            item.child.sensitive = item.selectable = item.activatable = choice.reason == null;
        });
        menu.list_factory = factory;
        menu.notify["selected"].connect(() => {
            var choice = (Morvane.Choice?) menu.selected_item;
            if (!updating && choice != null)
                picked(choice.code);
        });
        name_for_all(menu, name);
        child = menu;
    }

    public void show_choices(ListModel choices, int code) {
        updating = true;
        menu.model = choices;
        for (uint i = 0; i != choices.get_n_items(); ++i) {
            if (((Morvane.Choice) choices.get_item(i)).code == code)
                menu.selected = i;
        }
        // A menu of one is only shown.
        menu.sensitive = choices.get_n_items() > 1;
        updating = false;
    }
}

}

// SPDX-License-Identifier: MIT
namespace Permissions {

/* A button that shows what an entry is, and opens a menu of what it can be. What cannot be chosen is grey, with the
   reason below it. */
public class ChoiceMenu : Adw.Bin {
    private Aspect aspect;
    private string name_of_menu;
    private SharedEntry? entry = null;
    public Gtk.MenuButton button { get; default = new Gtk.MenuButton(); }

    public ChoiceMenu(string name, Aspect aspect) {
        this.name_of_menu = name;
        this.aspect = aspect;
        // Few menus are ever opened, and none before the window is shown.
        button.set_create_popup_func(() => { button.popover = made_popover(); });
        child = button;
    }

    public void show_entry(SharedEntry? entry) {
        this.entry = entry;
        button.label = entry == null ? "" : entry.text_of_aspect(aspect);
        // An aspect that cannot be changed is only shown.
        button.sensitive = entry != null && entry.choices_of(aspect).length > 1;
        // What has the keyboard is the button inside; it is all that a screen reader tells.
        name_for_all(button.get_first_child(), "%s: %s".printf(name_of_menu, button.label));
    }

    private Gtk.Popover made_popover() {
        var list = new Gtk.ListBox();
        name_for_all(list, name_of_menu);
        var popover = new Gtk.Popover() {
            child = new Gtk.ScrolledWindow() {
                child = list, hscrollbar_policy = Gtk.PolicyType.NEVER, propagate_natural_height = true,
                max_content_height = 400
            }
        };
        popover.add_css_class("menu");
        var choices = entry.choices_of(aspect);
        foreach (var choice in choices)
            list.append(made_row(choice));
        for (var i = 0; i != choices.length; ++i) {
            if (choices[i].code == entry.code_of(aspect)) {
                var row = list.get_row_at_index(i);
                list.select_row(row);
                popover.map.connect(() => { row.grab_focus(); });
            }
        }
        list.row_activated.connect(row => {
            popover.popdown();
            entry.choose(aspect, choices[row.get_index()].code);
        });
        return popover;
    }

    private static Gtk.ListBoxRow made_row(Choice choice) {
        var box = new Gtk.Box(Gtk.Orientation.VERTICAL, 0);
        box.append(new Gtk.Label(choice.name) { xalign = 0 });
        if (choice.reason != null) {
            var reason = new Gtk.Label(choice.reason) { xalign = 0, wrap = true, max_width_chars = 30 };
            reason.add_css_class("caption");
            box.append(reason);
        }
        var can_be = choice.reason == null;
        var row = new Gtk.ListBoxRow() {
            child = box, sensitive = can_be, activatable = can_be, selectable = can_be
        };
        name_for_all(row, choice.name);
        return row;
    }
}

}

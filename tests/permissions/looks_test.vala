// SPDX-License-Identifier: MIT
// looks_test FILE LANGUAGE...: opens the windows for the file in each language, from left to right and from right to
// left, light and dark, and prints each text that is cut and whatever else does not look as it should.
using Permissions;

private int problems = 0;

private void tell(string problem) {
    print("%s: %s\n", Environment.get_variable("LANGUAGE"), problem);
    ++problems;
}

/* Lets the program work until something is so. (The test that runs this has a time limit.) */
private delegate bool Condition();
private void wait_until(Condition condition) {
    while (!condition())
        MainContext.default().iteration(true);
}

/* Returns once the window has been drawn with all that it shows by itself. */
private void draw(Gtk.Window window) {
    wait_until(() => window.get_mapped());
    var drawn = false;
    var clock = window.get_surface().get_frame_clock();
    var handler = clock.after_paint.connect(() => { drawn = true; });
    window.queue_draw();
    wait_until(() => drawn);
    clock.disconnect(handler);
}

private void look_for_cut_texts(Gtk.Widget widget) {
    var label = widget as Gtk.Label;
    if (label != null && label.get_mapped() && label.get_layout().is_ellipsized())
        tell("“%s” is cut".printf(label.label));
    var row = widget as EntryRow;
    if (row != null && row.is_cut)
        tell("a text of the table is cut: %s".printf(string.joinv("; ", row.texts)));
    for (var child = widget.get_first_child(); child != null; child = child.get_next_sibling())
        look_for_cut_texts(child);
}

private Gtk.Widget? find(Gtk.Widget widget, Type type) {
    if (widget.get_type() == type)
        return widget;
    for (var child = widget.get_first_child(); child != null; child = child.get_next_sibling()) {
        var found = find(child, type);
        if (found != null)
            return found;
    }
    return null;
}

private double place_of(Gtk.Widget widget, Gtk.Window window) {
    Graphene.Rect bounds;
    assert(widget.compute_bounds(window, out bounds));
    return bounds.get_x() + bounds.get_width() / 2;
}

private void look_at(Permissions.Application application, File file) {
    var window = new Permissions.Window(application, new Permissions.Items(new Morvane.FileClient(), { file, file.get_parent() }));
    wait_until(() => find(window, typeof(Gtk.CheckButton)) != null);  // The lists are read.
    draw(window);
    look_for_cut_texts(window);

    // The boxes stand at the side where lines begin, the menu at the other.
    var is_rtl = Gtk.Widget.get_default_direction() == Gtk.TextDirection.RTL;
    var middle = window.get_width() / 2;
    if (place_of(find(window, typeof(Gtk.CheckButton)), window) > middle != is_rtl)
        tell("the boxes are at the wrong side");
    if (place_of(find(window, typeof(Gtk.MenuButton)), window) > middle == is_rtl)
        tell("the menu is at the wrong side");
    var color = find(window, typeof(EntryRow)).get_style_context().get_color();
    var is_light = (color.red + color.green + color.blue) / 3 > 0.5;
    if (is_light != Adw.StyleManager.get_default().dark)
        tell("the texts of the table have the wrong colour");

    var people = new PeopleWindow(window, new Morvane.FileClient(), _("What Can They Do?"), _("Show"));
    people.present();
    draw(people);
    look_for_cut_texts(people);
    people.close();
    var question = new QuestionWindow(window, _("The File System Cannot Hold All of It"), "", _("_Keep Editing"),
                                      _("_Apply the Nearest"), false);
    question.present();
    draw(question);
    look_for_cut_texts(question);
    question.close();
    var progress = new ProgressWindow(window, new Cancellable());
    progress.present();
    draw(progress);
    look_for_cut_texts(progress);
    progress.end();
    window.close();
}

int main(string[] arguments) {
    Intl.setlocale();
    Intl.bindtextdomain("morvaneoperation", Environment.get_variable("MORVANE_LOCALE_DIR"));
    Intl.bind_textdomain_codeset("morvaneoperation", "UTF-8");
    var application = new Permissions.Application({});
    try {
        application.register();
    } catch (Error error) {
        GLib.error("%s", error.message);
    }
    var schemes = new Adw.ColorScheme[] { Adw.ColorScheme.FORCE_LIGHT, Adw.ColorScheme.FORCE_DARK };
    for (var i = 2; i < arguments.length; ++i) {
        Environment.set_variable("LANGUAGE", arguments[i], true);
        Intl.setlocale();  // the language of what was translated before is forgotten
        application.style_manager.color_scheme = schemes[i % 2];
        Gtk.Widget.set_default_direction(i % 3 == 0 ? Gtk.TextDirection.RTL : Gtk.TextDirection.LTR);
        if (i != 2 && _("Apply") == "Apply")
            tell("there is no translation");
        look_at(application, File.new_for_path(arguments[1]));
    }
    return problems == 0 ? 0 : 1;
}

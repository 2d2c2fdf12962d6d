// SPDX-License-Identifier: MIT
namespace Permissions {

public class Application : Adw.Application {
    private Morvane.FileClient client = new Morvane.FileClient();
    private string[] arguments;
    private Items? first = null;

    /* `arguments` are those of the command line, without the name of the program. */
    public Application(string[] arguments) {
        Object(application_id: "io.github.morvaneoperation.Permissions", flags: ApplicationFlags.HANDLES_OPEN);
        this.arguments = arguments;
    }

    protected override void startup() {
        // The service reads the lists while GTK makes itself ready, which takes longer.
        File[] files = {};
        foreach (var argument in arguments) {
            if (!argument.has_prefix("-"))
                files += File.new_for_commandline_arg(argument);
        }
        if (files.length != 0)
            first = new Items(client, distinct(files));
        base.startup();
        set_accels_for_action("win.apply", { "<Control>s" });
        set_accels_for_action("win.add", { "<Control>n" });
        set_accels_for_action("win.remove", { "<Control>Delete" });
        set_accels_for_action("win.reload", { "F5", "<Control>r" });
        set_accels_for_action("window.close", { "<Control>w" });
    }

    /* Started by a desktop without a file: it asks for one. */
    protected override void activate() {
        var chooser = new Gtk.FileChooserNative(_("Show Permissions Of"), null, Gtk.FileChooserAction.OPEN,
                                                _("_Open"), null);
        hold();
        chooser.response.connect(response => {
            if (response == Gtk.ResponseType.ACCEPT)
                open({ chooser.get_file() }, "");
            chooser.destroy();
            release();
        });
        chooser.show();
    }

    protected override void open(File[] files, string hint) {
        var items = first;
        first = null;
        if (items == null || !items.are(distinct(files)))
            items = new Items(client, distinct(files));
        new Window(this, items);
    }

    private static File[] distinct(File[] files) {
        File[] distinct = {};
        var known = new GenericSet<File>(file => file.hash(), (a, b) => a.equal(b));
        foreach (var file in files) {
            if (!known.contains(file))
                distinct += file;
            known.add(file);
        }
        return distinct;
    }
}

/* Names a widget for those who do not see it. */
public void name_for_all(Gtk.Widget widget, string name) {
    widget.update_property(Gtk.AccessibleProperty.LABEL, name, -1);
}

}

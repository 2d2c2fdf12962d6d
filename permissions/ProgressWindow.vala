// SPDX-License-Identifier: MIT
namespace Permissions {

/* Long work, which can be cancelled. */
public class ProgressWindow : Adw.Window {
    private Cancellable cancellable;
    private Gtk.ProgressBar bar = new Gtk.ProgressBar();
    private Gtk.Label count = new Gtk.Label("") { xalign = 0 };
    private uint64 done_before = 0;
    private uint64 failed_before = 0;
    private bool ended = false;

    /* How many items have what they shall have, and for how many that failed. */
    public uint64 done { get; private set; default = 0; }
    public uint64 failed { get; private set; default = 0; }

    public ProgressWindow(Gtk.Window parent, Cancellable cancellable) {
        Object(transient_for: parent, modal: true, title: _("Applying to Everything Inside"), default_width: 360);
        this.cancellable = cancellable;
        name_for_all(bar, title);
        var button = new Gtk.Button.with_mnemonic(_("_Cancel")) { halign = Gtk.Align.END };
        button.clicked.connect(() => {
            button.sensitive = false;
            cancellable.cancel();
        });
        var box = new Gtk.Box(Gtk.Orientation.VERTICAL, 18) {
            margin_top = 18, margin_bottom = 18, margin_start = 18, margin_end = 18
        };
        box.append(new Gtk.Label(title) { xalign = 0 });
        box.append(bar);
        box.append(count);
        box.append(button);
        content = box;
        close_request.connect(() => {
            cancellable.cancel();
            return !ended;
        });
    }

    /* Shows how far the work is, after what was followed before. */
    public void follow(Morvane.Progress progress) {
        done_before = done;
        failed_before = failed;
        progress.notify.connect(() => {
            bar.pulse();
            done = done_before + progress.items_done;
            failed = failed_before + progress.items_failed;
            var text = ngettext("%s item done", "%s items done", (ulong) done).printf("%'llu".printf(done));
            if (failed != 0) {
                var failures = ngettext("%s item failed", "%s items failed", (ulong) failed);
                text += ", " + failures.printf("%'llu".printf(failed));
            }
            count.label = text;
        });
    }

    public void end() {
        ended = true;
        close();
    }
}

}

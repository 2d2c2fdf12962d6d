// SPDX-License-Identifier: MIT
namespace Permissions {

/* Long work, which can be cancelled. */
public class ProgressWindow : Adw.Window {
    private Cancellable cancellable;
    private Gtk.ProgressBar bar = new Gtk.ProgressBar();
    private bool ended = false;

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
        box.append(button);
        content = box;
        close_request.connect(() => {
            cancellable.cancel();
            return !ended;
        });
    }

    /* Shows that the work is going on. */
    public void follow(Morvane.Progress progress) {
        progress.notify["reports"].connect(() => bar.pulse());
    }

    public void end() {
        ended = true;
        close();
    }
}

}

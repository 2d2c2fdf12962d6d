// SPDX-License-Identifier: MIT
namespace Permissions {

/* Asks something, or tells it if there is no `yes`. The text may be long. */
public class QuestionWindow : Adw.Window {
    public signal void answered(bool yes);

    private bool is_yes = false;

    public QuestionWindow(Gtk.Window parent, string question, string text, string no, string? yes, bool destroys) {
        Object(transient_for: parent, modal: true, title: question, default_width: 440, resizable: false);
        var heading = new Gtk.Label(question) { wrap = true, xalign = 0 };
        heading.add_css_class("title-4");
        var body = new Gtk.Label(text) { wrap = true, xalign = 0, yalign = 0, selectable = true };
        var buttons = new Gtk.Box(Gtk.Orientation.HORIZONTAL, 12) { halign = Gtk.Align.END };
        buttons.append(button(no, false));
        if (yes != null) {
            var agree = button(yes, true);
            agree.add_css_class(destroys ? "destructive-action" : "suggested-action");
            buttons.append(agree);
        }
        var box = new Gtk.Box(Gtk.Orientation.VERTICAL, 18) {
            margin_top = 24, margin_bottom = 18, margin_start = 24, margin_end = 24
        };
        box.append(heading);
        box.append(new Gtk.ScrolledWindow() {
            child = body, propagate_natural_height = true, max_content_height = 300,
            hscrollbar_policy = Gtk.PolicyType.NEVER
        });
        box.append(buttons);
        content = new Gtk.WindowHandle() { child = box };
        var keys = new Gtk.ShortcutController();
        keys.add_shortcut(new Gtk.Shortcut(Gtk.ShortcutTrigger.parse_string("Escape"),
                                           Gtk.ShortcutAction.parse_string("action(window.close)")));
        ((Gtk.Widget) this).add_controller(keys);
        close_request.connect(() => {
            answered(is_yes);
            return false;
        });
        focus_widget = buttons.get_last_child();
    }

    private Gtk.Button button(string text, bool yes) {
        var made = new Gtk.Button.with_mnemonic(text);
        made.clicked.connect(() => {
            is_yes = yes;
            close();
        });
        return made;
    }
}

/* Asks something; answers whether it was agreed to. Without `yes` it only tells something. */
public async bool ask(Gtk.Window parent, string question, string text, string no, string? yes, bool destroys) {
    var window = new QuestionWindow(parent, question, text, no, yes, destroys);
    bool answer = false;
    window.answered.connect(is_yes => {
        answer = is_yes;
        ask.callback();
    });
    window.present();
    yield;
    return answer;
}

/* Tells of a problem, and waits until that was read. */
public async void tell(Gtk.Window parent, string problem, string text) {
    yield ask(parent, problem, text, _("_Close"), null, false);
}

}

// SPDX-License-Identifier: MIT
// morvane-permissions PATH...: shows who may do what with files and folders, all of them in one window, and changes it.

namespace Permissions {

[CCode (cname = "LOCALEDIR")]
extern const string LOCALE_FOLDER;
[CCode (cname = "GETTEXT_PACKAGE")]
extern const string CATALOGUE;

/* GTK gets OpenGL ready before it shows anything, which takes half as long as all else. Check boxes need none of it.
   Whoever asks for a renderer or has GTK debugged gets that instead. */
private void leave_out_opengl() {
    if ((Environment.get_variable("GSK_RENDERER") ?? "cairo") != "cairo")
        return;
    if (Gtk.get_minor_version() < 16)
        Environment.set_variable("GDK_DEBUG", "gl-disable", false);
    else
        Environment.set_variable("GDK_DISABLE", "gl,vulkan", false);
}

public int main(string[] arguments) {
    leave_out_opengl();
    Intl.setlocale();
    Intl.bindtextdomain(CATALOGUE, Environment.get_variable("MORVANE_LOCALE_DIR") ?? LOCALE_FOLDER);
    Intl.bind_textdomain_codeset(CATALOGUE, "UTF-8");
    Environment.set_application_name(_("Permissions"));
    return new Application(arguments[1:arguments.length]).run(arguments);
}

}

// SPDX-License-Identifier: MIT
// morvane-permissions PATH...: shows who may do what with files and folders, all of them in one window, and changes it.

namespace Permissions {

[CCode (cname = "LOCALEDIR")]
extern const string LOCALE_FOLDER;
[CCode (cname = "GETTEXT_PACKAGE")]
extern const string CATALOGUE;

public int main(string[] arguments) {
    Intl.setlocale();
    Intl.bindtextdomain(CATALOGUE, Environment.get_variable("MORVANE_LOCALE_DIR") ?? LOCALE_FOLDER);
    Intl.bind_textdomain_codeset(CATALOGUE, "UTF-8");
    Environment.set_application_name(_("Permissions"));
    return new Application().run(arguments);
}

}

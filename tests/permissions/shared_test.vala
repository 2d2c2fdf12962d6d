// SPDX-License-Identifier: MIT
// How the lists of several items are shown and edited as one, on real files, without a window.
using Permissions;

private string folder;
private Items kept;

/* Runs a program and returns what it has printed. */
private string run(string[] command) {
    string printed;
    int status;
    try {
        Process.spawn_sync(null, command, null, SpawnFlags.SEARCH_PATH, null, out printed, null, out status);
    } catch (Error error) {
        GLib.error("%s", error.message);
    }
    assert(status == 0);
    return printed;
}

/* Makes a file with these entries for others than its owner, and returns its path. */
private string file(string name, string entries) {
    var path = Path.build_filename(folder, name);
    run({ "touch", path });
    run({ "chown", "root:root", path });
    run({ "chmod", "640", path });
    run({ "setfacl", "-b", "-m", entries, path });
    return path;
}

private string list_of(string path) {
    return run({ "getfacl", "-cpE", path }).strip().replace("\n", ",");
}

private SharedAcl read_all(string[] paths) {
    File[] files = {};
    foreach (var path in paths)
        files += File.new_for_path(path);
    var items = new Items(new Morvane.FileClient(), files);
    var loop = new MainLoop();
    items.load.begin((_, result) => {
        var problems = items.load.end(result);
        assert(problems == null);
        loop.quit();
    });
    loop.run();
    kept = items;
    return items.shared;
}

/* Writes what was edited. The answer is what failed. */
private string? write_all() {
    string? problems = null;
    var loop = new MainLoop();
    kept.write.begin(kept.edited_acls(), (_, result) => {
        problems = kept.write.end(result);
        loop.quit();
    });
    loop.run();
    return problems;
}

private SharedEntry row(SharedAcl acl, string who) {
    for (uint i = 0; i != acl.get_n_items(); ++i) {
        var entry = (SharedEntry) acl.get_item(i);
        if (entry.who == who)
            return entry;
    }
    GLib.error("there is no row of %s", who);
}

private SharedPermission box(SharedEntry entry, uint group, int box = -1) {
    var found = (SharedPermission) entry.permissions.get_item(group);
    return box < 0 ? found : (SharedPermission) found.children.get_item(box);
}

private void is_text(string is, string expected) {
    assert_cmpstr(is, CompareOperator.EQ, expected);
}

private void what_all_have_is_one_row_and_what_some_have_says_so() {
    var acl = read_all({ file("a", "u:daemon:r,g:games:r"), file("b", "u:daemon:rw,g:games:r"), file("c", "g:games:r") });
    assert(acl.get_n_items() == 5);
    is_text(row(acl, "user root (owner)").permissions_text, "Read and Write");
    is_text(row(acl, "group games").rule_text, "Allow");
    is_text(row(acl, "user daemon (2 of 3 items)").permissions_text, "differs");
    assert(row(acl, "user daemon (2 of 3 items)").code_of(Aspect.PERMISSIONS) == SharedEntry.DIFFERS);
    assert(row(acl, "group games").code_of(Aspect.PERMISSIONS) != SharedEntry.DIFFERS);
    assert(!acl.modified);
}

private void owners_that_are_not_the_same_are_one_row() {
    var other = file("b", "u:daemon:r");
    run({ "chown", "bin:games", other });
    var acl = read_all({ file("a", "u:daemon:r"), other });
    assert(acl.get_n_items() == 4);
    is_text(row(acl, "owner of each").permissions_text, "Read and Write");
    is_text(row(acl, "owning group of each").permissions_text, "Read");
}

private void a_box_that_differs_is_mixed_and_a_click_sets_it_in_all_and_nothing_else() {
    string[] paths = { file("a", "u:daemon:r,g:games:r,m::rw"), file("b", "u:daemon:rwx,u:bin:---") };
    var acl = read_all(paths);
    var daemon = row(acl, "user daemon");
    var group = box(daemon, 1);
    assert(group.state == Morvane.State.MIXED);
    is_text(daemon.permissions_text, "differs");
    group.toggle();
    assert(group.state == Morvane.State.ON);
    assert(write_all() == null);
    is_text(list_of(paths[0]), "user::rw-,user:daemon:rw-,group::r--,group:games:r--,mask::rw-,other::---");
    is_text(list_of(paths[1]), "user::rw-,user:daemon:rwx,user:bin:---,group::r--,mask::rwx,other::---");
    // A list stores less than the whole group: it is switched on, and then off.
    group = box(row(kept.shared, "user daemon"), 1);
    assert(group.state == Morvane.State.MIXED);
    group.toggle();
    group.toggle();
    assert(group.state == Morvane.State.OFF);
    assert(write_all() == null);
    is_text(list_of(paths[0]), "user::rw-,user:daemon:r--,group::r--,group:games:r--,mask::r--,other::---");
    is_text(list_of(paths[1]), "user::rw-,user:daemon:r-x,user:bin:---,group::r--,mask::r-x,other::---");
}

private void a_choice_is_made_in_all() {
    string[] paths = { file("a", "u:daemon:r"), file("b", "u:daemon:rw") };
    var daemon = row(read_all(paths), "user daemon");
    var names = "";
    foreach (var choice in daemon.choices_of(Aspect.PERMISSIONS))
        names += choice.name + (choice.reason == null ? "," : " (not),");
    assert("Read," in names && "All (not)," in names);
    daemon.choose(Aspect.PERMISSIONS, Morvane.PermissionGroup.WRITE);
    is_text(daemon.permissions_text, "Write");
    assert(write_all() == null);
    foreach (var path in paths)
        assert("user:daemon:-w-" in list_of(path));
}

private void somebody_is_added_where_he_has_no_entry_and_removed_where_he_has_one() {
    string[] paths = { file("a", "u:daemon:r"), file("b", "g:games:r") };
    var acl = read_all(paths);
    var count = acl.get_n_items();
    var place = acl.add(new Morvane.Identity.for_user(1));
    assert(acl.get_n_items() == count);
    var daemon = (SharedEntry) acl.get_item(place);
    is_text(daemon.who, "user daemon");
    daemon.choose(Aspect.PERMISSIONS, Morvane.PermissionGroup.READ);
    acl.remove(row(acl, "group games (1 of 2 items)"));
    assert(acl.get_n_items() == count - 1);
    assert(write_all() == null);
    is_text(list_of(paths[0]), "user::rw-,user:daemon:r--,group::r--,mask::r--,other::---");
    is_text(list_of(paths[1]), "user::rw-,user:daemon:r--,group::r--,mask::r--,other::---");
    // All have one now: another goes into each list.
    assert(kept.shared.add(new Morvane.Identity.for_user(2)) == kept.shared.get_n_items() - 1);
    assert(kept.edited_acls().length == 2);
}

private void a_folder_and_a_file_share_what_both_have() {
    var path = Path.build_filename(folder, "inside");
    run({ "mkdir", "-p", path });
    run({ "setfacl", "-m", "u:daemon:rx,d:u:daemon:rx", path });
    string[] paths = { file("a", "u:daemon:r"), path };
    var acl = read_all(paths);
    assert(!acl.folder);
    var daemon = row(acl, "user daemon");
    is_text(daemon.applies_to_text, "differs");
    assert(daemon.permissions.get_n_items() == 4);
    box(daemon, 1).toggle();
    assert(write_all() == null);
    assert("user:daemon:rw-" in list_of(paths[0]));
    assert("user:daemon:rwx" in list_of(path) && "default:user:daemon:rwx" in list_of(path));
}

private void what_cannot_be_written_is_told_by_its_name_and_keeps_what_was_edited() {
    string[] paths = { file("a", "u:daemon:r"), file("b", "u:daemon:r") };
    var acl = read_all(paths);
    box(row(acl, "user daemon"), 1).toggle();
    run({ "rm", paths[0] });
    is_text(write_all(), "a: No such file or directory");
    assert("user:daemon:rw-" in list_of(paths[1]));
    assert(kept.edited_acls().length == 1);
    is_text(kept.edited_acls()[0].file.get_path(), paths[0]);
}

int main(string[] arguments) {
    Test.init(ref arguments);
    try {
        folder = DirUtils.make_tmp("shared-XXXXXX");
    } catch (Error error) {
        GLib.error("%s", error.message);
    }
    Test.add_func("/what-all-have-is-one-row-and-what-some-have-says-so",
                  what_all_have_is_one_row_and_what_some_have_says_so);
    Test.add_func("/owners-that-are-not-the-same-are-one-row", owners_that_are_not_the_same_are_one_row);
    Test.add_func("/a-box-that-differs-is-mixed-and-a-click-sets-it-in-all-and-nothing-else",
                  a_box_that_differs_is_mixed_and_a_click_sets_it_in_all_and_nothing_else);
    Test.add_func("/a-choice-is-made-in-all", a_choice_is_made_in_all);
    Test.add_func("/somebody-is-added-where-he-has-no-entry-and-removed-where-he-has-one",
                  somebody_is_added_where_he_has_no_entry_and_removed_where_he_has_one);
    Test.add_func("/a-folder-and-a-file-share-what-both-have", a_folder_and_a_file_share_what_both_have);
    Test.add_func("/what-cannot-be-written-is-told-by-its-name-and-keeps-what-was-edited",
                  what_cannot_be_written_is_told_by_its_name_and_keeps_what_was_edited);
    var status = Test.run();
    run({ "rm", "-r", folder });
    return status;
}

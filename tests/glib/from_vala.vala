// SPDX-License-Identifier: MIT
// usage: from_vala FILE FOLDER: the binding from Vala, on real items. It prints what came of each step.

async void work(string path, string folder) throws Error {
    var client = new Morvane.FileClient();
    var acl = yield client.read_acl_async(File.new_for_path(path), Morvane.Privilege.NEVER, null);
    var entry = acl.add(new Morvane.Identity.for_user(1));
    entry.notify["permissions-text"].connect(() => print("now %s\n", entry.permissions_text));
    entry.permission_group = Morvane.PermissionGroup.READ;
    var group = (Morvane.Permission) entry.permissions.get_item(0);
    print("%s: %s\n", group.name, group.state == Morvane.State.ON ? "on" : "not on");
    yield client.write_acl_async(acl, Morvane.Privilege.NEVER, null);

    var list = yield client.read_acl_async(File.new_for_path(folder), Morvane.Privilege.NEVER, null);
    var cancellable = new Cancellable();
    cancellable.cancel();
    try {
        yield client.propagate_acl_async(list, Morvane.Privilege.NEVER, new Morvane.Progress(), cancellable);
    } catch (IOError.CANCELLED error) {
        print("cancelled\n");
    }
    try {
        yield client.write_acl_async(acl, Morvane.Privilege.NEVER, null);
    } catch (Morvane.Error.CHANGED error) {
        print("changed meanwhile\n");
    }
    var sizes = new Morvane.Sizes({ File.new_for_path(path) });
    yield client.measure_async(sizes, Morvane.Privilege.NEVER, null);
    print("%s\n", ((Morvane.Size) sizes.get_item(0)).detail);
    Morvane.Acl nearest;
    var losses = yield client.list_losses_async(acl, null, out nearest);
    print("%u losses, %u entries\n", losses.get_n_items(), nearest.get_n_items());
}

int main(string[] arguments) {
    var loop = new MainLoop();
    int code = 0;
    work.begin(arguments[1], arguments[2], (source, result) => {
        try {
            work.end(result);
        } catch (Error error) {
            print("%s\n", error.message);
            code = 1;
        }
        loop.quit();
    });
    loop.run();
    return code;
}

// SPDX-License-Identifier: MIT
namespace Permissions {

/* The files and folders of a window with their lists: reads them, notices what other programs change, and writes them.
   What fails is answered as a text for people, which names the items if there are several. */
public class Items : Object {
    /* `shared` shows other lists now. */
    public signal void replaced();
    /* Another program has changed a list that was edited here. */
    public signal void changed_elsewhere();

    public File[] files;
    public Morvane.FileClient client;
    /* Null before anything was read. It has the lists of those items alone that could be read. */
    public SharedAcl? shared = null;

    private Morvane.Acl?[] acls;
    private Reading? first;
    private FileMonitor[] monitors = {};
    private bool is_writing = false;

    /* Begins to read the lists. */
    public Items(Morvane.FileClient client, File[] files) {
        this.client = client;
        this.files = files;
        acls = new Morvane.Acl?[files.length];
        first = new Reading(this);
    }

    public bool are(File[] others) {
        for (var i = 0; i != files.length; ++i) {
            if (i == others.length || !files[i].equal(others[i]))
                return false;
        }
        return files.length == others.length;
    }

    public string name_of(File file) {
        return file.get_basename() ?? file.get_parse_name();
    }

    /* Reads all lists, whatever was edited; what the object was made with is not read again for the first call. */
    public async string? load() {
        var reading = first ?? new Reading(this);
        first = null;
        yield reading.wait();
        acls = reading.acls;
        share();
        return reading.problems;
    }

    private void share() {
        Morvane.Acl[] known = {};
        foreach (var acl in acls) {
            if (acl != null)
                known += acl;
        }
        shared = known.length == 0 ? null : new SharedAcl(known);
        replaced();
    }

    public void watch() {
        for (var i = 0; i != files.length; ++i) {
            var item = i;
            try {
                var monitor = files[item].monitor(FileMonitorFlags.NONE, null);
                monitor.changed.connect(() => look_again.begin(item));
                monitors += monitor;
            } catch (Error error) {
                // Where nothing can be watched, writing still finds out what has changed.
            }
        }
    }

    private async void look_again(int item) {
        try {
            var now = yield read(files[item], Morvane.Privilege.NEVER);
            if (is_writing || acls[item] == null || acls[item].is_current(now))
                return;
            if (shared.modified) {
                changed_elsewhere();
            } else {
                acls[item] = now;
                share();
            }
        } catch (Error error) {
            // It may be gone, or not this user's to read.
        }
    }

    /* Has what other programs wrote be replaced by what is edited here. */
    public async string? keep() {
        var reading = new Reading(this);
        yield reading.wait();
        for (var i = 0; i != files.length; ++i) {
            if (acls[i] != null && reading.acls[i] != null)
                acls[i].adopt(reading.acls[i]);
        }
        return reading.problems;
    }

    /* What the items cannot hold of what was edited, as a text, with the nearest lists that they can; null if they can
       hold all of it. */
    public async string? list_losses(out Morvane.Acl[] nearest) {
        var losses = new StringBuilder();
        var edited = edited_acls();
        var found = edited;
        var count = new Count(edited.length, list_losses.callback);
        for (var i = 0; i != edited.length; ++i) {
            var item = i;
            client.list_losses_async.begin(edited[item], null, (_, result) => {
                try {
                    Morvane.Acl held;
                    var list = client.list_losses_async.end(result, out held);
                    if (list.get_n_items() != 0)
                        found[item] = held;
                    for (uint j = 0; j != list.get_n_items(); ++j) {
                        var loss = (Morvane.Loss) list.get_item(j);
                        add_line(losses, edited[item].file, "%s: %s".printf(loss.who, loss.text));
                    }
                } catch (Error error) {
                    // The service has not said what the list can hold: it refuses what it cannot.
                }
                count.one_has_ended();
            });
        }
        if (edited.length != 0)
            yield;
        nearest = found;
        return losses.len == 0 ? null : losses.str;
    }

    /* The lists that differ from what the items have. */
    public Morvane.Acl[] edited_acls() {
        Morvane.Acl[] edited = {};
        foreach (var acl in shared.acls) {
            if (acl.modified)
                edited += acl;
        }
        return edited;
    }

    /* Writes these lists, together: the right to do that costs one prompt. Those that were written are read again; an
       item whose list was not keeps what was edited. The answer is empty if the user would not give the right, and if
       another program was there first, which is told by changed_elsewhere(). */
    public async string? write(Morvane.Acl[] lists) {
        var problems = new StringBuilder();
        var was_stopped = false;
        var was_changed = false;
        is_writing = true;
        var count = new Count(lists.length, write.callback);
        foreach (var each in lists) {
            var acl = each;
            client.write_acl_async.begin(acl, Morvane.Privilege.WHEN_REFUSED, null, (_, result) => {
                try {
                    client.write_acl_async.end(result);
                    read_written.begin(acl.file, (_, read) => {
                        read_written.end(read);
                        count.one_has_ended();
                    });
                    return;
                } catch (Error error) {
                    was_stopped = true;
                    was_changed |= error is Morvane.Error.CHANGED;
                    if (!(error is Morvane.Error.DISMISSED) && (files.length > 1 || !(error is Morvane.Error.CHANGED)))
                        add_problem(problems, acl.file, error);
                }
                count.one_has_ended();
            });
        }
        if (lists.length != 0)
            yield;
        is_writing = false;
        share();
        if (was_changed)
            changed_elsewhere();
        return was_stopped ? problems.str : null;
    }

    private async Morvane.Acl read(File file, Morvane.Privilege privilege) throws Error {
        // Several lists are shown as one by who is in them, which has to be known first. In the place of a list with
        // names none is shown without.
        client.names_later = files.length == 1 && shared == null;
        return yield client.read_acl_async(file, privilege, null);
    }

    private async void read_written(File file) {
        for (var item = 0; item != files.length; ++item) {
            if (acls[item] == null || !acls[item].file.equal(file))
                continue;
            try {
                acls[item] = yield read(file, Morvane.Privilege.WHEN_REFUSED);
            } catch (Error error) {
                // What was written is what is shown; it cannot be written again.
            }
        }
    }

    private void add_problem(StringBuilder text, File file, Error error) {
        add_line(text, file, error.message);
    }

    private void add_line(StringBuilder text, File file, string line) {
        if (text.len != 0)
            text.append_c('\n');
        if (files.length > 1)
            text.append_printf("%s: ", name_of(file));
        text.append(line);
    }

    /* Reads the list of each item. They are asked for together: the right to do that costs one prompt. */
    private class Reading {
        /* Null for an item whose list could not be read. */
        public Morvane.Acl?[] acls;
        public string? problems { owned get { return told.len == 0 ? null : told.str; } }

        private StringBuilder told = new StringBuilder();
        private int left;
        private SourceFunc? then = null;

        public Reading(Items items) {
            left = items.files.length;
            acls = new Morvane.Acl?[left];
            for (var i = 0; i != items.files.length; ++i)
                read.begin(items, i);
        }

        private async void read(Items items, int item) {
            var file = items.files[item];
            try {
                acls[item] = yield items.read(file, Morvane.Privilege.WHEN_REFUSED);
            } catch (Error error) {
                items.add_problem(told, file, error);
            }
            if (--left == 0 && then != null)
                then();
        }

        /* Returns once all of them are read. */
        public async void wait() {
            if (left == 0)
                return;
            then = wait.callback;
            yield;
        }
    }

    /* Calls `then` when so many works have ended. */
    private class Count {
        private int left;
        private SourceFunc then;

        public Count(int left, owned SourceFunc then) {
            this.left = left;
            this.then = (owned) then;
        }

        public void one_has_ended() {
            if (--left == 0)
                then();
        }
    }
}

}

// SPDX-License-Identifier: MIT
namespace Permissions {

/* The same check box of the entries of several items, as one: mixed where they differ. */
public class SharedPermission : Object {
    /* Something of the box may be another now. It comes once for all that one click has changed. */
    public signal void changed();

    private Morvane.Permission[] parts;
    private ListStore? boxes = null;
    private uint source = 0;

    public SharedPermission(Morvane.Permission[] parts) {
        this.parts = parts;
        foreach (var part in parts)
            part.notify.connect(tell_soon);
    }

    public string name { owned get { return parts[0].name; } }

    public Morvane.State state {
        get {
            var state = parts[0].state;
            foreach (var part in parts) {
                if (part.state != state)
                    return Morvane.State.MIXED;
            }
            return state;
        }
    }

    /* Why a click would change nothing anywhere; null if it would. */
    public string? reason {
        owned get {
            foreach (var part in parts) {
                if (part.sensitive)
                    return null;
            }
            return parts[0].reason;
        }
    }

    /* The boxes of a group; null for a box. */
    public ListModel? children {
        get {
            if (boxes == null && parts[0].get_children() != null) {
                ListModel[] lists = {};
                foreach (var part in parts)
                    lists += part.get_children();
                boxes = of_lists(lists);
            }
            return boxes;
        }
    }

    /* Does what a click means, for all: what is on everywhere is switched off, anything else on. Where nothing can be
       switched on any more, it is switched off. */
    public void toggle() {
        if (state == Morvane.State.ON || !switch_all(Morvane.State.ON))
            switch_all(Morvane.State.OFF);
    }

    private bool switch_all(Morvane.State wanted) {
        var has_changed = false;
        foreach (var part in parts) {
            var before = part.state;
            part.set_state(wanted);
            has_changed |= part.state != before;
        }
        return has_changed;
    }

    /* The boxes of each item, as one list. A folder has some that a file does not have; they come last. */
    public static ListStore of_lists(ListModel[] lists) {
        var made = new ListStore(typeof(SharedPermission));
        uint count = 0;
        foreach (var list in lists)
            count = uint.max(count, list.get_n_items());
        for (uint i = 0; i != count; ++i) {
            Morvane.Permission[] parts = {};
            foreach (var list in lists) {
                var part = (Morvane.Permission?) list.get_item(i);
                if (part != null)
                    parts += part;
            }
            made.append(new SharedPermission(parts));
        }
        return made;
    }

    private void tell_soon() {
        if (source == 0)
            source = Idle.add(() => {
                source = 0;
                changed();
                return Source.REMOVE;
            }, Priority.HIGH_IDLE);
    }
}

}

// SPDX-License-Identifier: MIT
namespace Permissions {

/* The lists of one or more items as one: a list of SharedEntry. Those that several items have are one row. An edit
   reaches the list of each item, where all else stays as it is. */
public class SharedAcl : Object, ListModel {
    public Morvane.Acl[] acls;

    /* Some list was edited, or is no more. */
    public signal void modified_changed();

    // Of one item alone, the rows are made when they are first asked for: lists can be long, and few rows are shown.
    private GenericArray<SharedEntry?> rows = new GenericArray<SharedEntry?>();

    public SharedAcl(Morvane.Acl[] acls) {
        this.acls = acls;
        foreach (var acl in acls)
            acl.notify["modified"].connect(() => modified_changed());
        if (acls.length == 1)
            rows.length = (int) acls[0].get_n_items();
        else
            find_shared();
    }

    public bool modified {
        get {
            foreach (var acl in acls) {
                if (acl.modified)
                    return true;
            }
            return false;
        }
    }

    /* Whether all items are folders. */
    public bool folder {
        get {
            foreach (var acl in acls) {
                if (!acl.folder)
                    return false;
            }
            return true;
        }
    }

    public Type get_item_type() {
        return typeof(SharedEntry);
    }

    public uint get_n_items() {
        return rows.length;
    }

    public Object? get_item(uint position) {
        if (position >= rows.length)
            return null;
        if (rows[position] == null)
            rows[position] = new SharedEntry({ (Morvane.AclEntry) acls[0].get_item(position) });
        return rows[position];
    }

    /* Adds an entry wherever somebody has none, or to all lists if they have one in each. Returns its row. */
    public uint add(Morvane.Identity identity) {
        for (uint row = 0; row != rows.length && acls.length > 1; ++row) {
            if (!rows[row].is_everywhere && is_for(rows[row], identity)) {
                for (uint i = 0; i != acls.length; ++i) {
                    if (rows[row].of_items[i] == null)
                        rows[row].extend(i, acls[i].add(identity));
                }
                return row;
            }
        }
        Morvane.AclEntry?[] of_items = {};
        foreach (var acl in acls)
            of_items += acl.add(identity);
        rows.add(new SharedEntry(of_items));
        items_changed(rows.length - 1, 0, 1);
        return rows.length - 1;
    }

    /* Takes the entry out of each list that has it. */
    public void remove(SharedEntry entry) {
        for (var row = 0; row != rows.length; ++row) {
            if (rows[row] != entry)
                continue;
            for (var i = 0; i != acls.length; ++i) {
                if (entry.of_items[i] != null)
                    acls[i].remove(entry.of_items[i]);
            }
            rows.remove_index(row);
            items_changed(row, 1, 0);
            return;
        }
    }

    /* Whether a new entry of this identity's belongs into the row. */
    private static bool is_for(SharedEntry row, Morvane.Identity identity) {
        foreach (var part in row.of_items) {
            if (part != null)
                return part.rule == Morvane.Rule.ALLOW && !part.inherited && identity.equal(part.identity) &&
                       (part.subject == Morvane.Subject.USER || part.subject == Morvane.Subject.GROUP);
        }
        return false;
    }

    /* Puts the entries for the same into one row each: first those that also apply to the same, then the others, in
       their order. The rows are in the order of the first list that has them. */
    private void find_shared() {
        var of_rows = new GenericArray<Parts>();
        var by_key = new HashTable<string, GenericArray<Parts>>(str_hash, str_equal);
        for (var item = 0; item != acls.length; ++item) {
            Morvane.AclEntry[] left = {};
            for (uint i = 0; i != acls[item].get_n_items(); ++i) {
                var entry = (Morvane.AclEntry) acls[item].get_item(i);
                if (!put(by_key[SharedEntry.key_of(entry)], item, entry, true))
                    left += entry;
            }
            foreach (var entry in left) {
                var key = SharedEntry.key_of(entry);
                if (put(by_key[key], item, entry, false))
                    continue;
                var parts = new Parts(acls.length);
                parts.of_items[item] = entry;
                of_rows.add(parts);
                if (by_key[key] == null)
                    by_key[key] = new GenericArray<Parts>();
                by_key[key].add(parts);
            }
        }
        foreach (var parts in of_rows)
            rows.add(new SharedEntry(parts.of_items));
    }

    private class Parts {
        public Morvane.AclEntry?[] of_items;

        public Parts(int count) {
            of_items = new Morvane.AclEntry?[count];
        }
    }

    private static bool put(GenericArray<Parts>? rows, int item, Morvane.AclEntry entry, bool applies_to_same) {
        for (var i = 0; rows != null && i != rows.length; ++i) {
            if (rows[i].of_items[item] != null)
                continue;
            var first = 0;
            while (rows[i].of_items[first] == null)
                ++first;
            if (applies_to_same && rows[i].of_items[first].applies_to != entry.applies_to)
                continue;
            rows[i].of_items[item] = entry;
            return true;
        }
        return false;
    }
}

}

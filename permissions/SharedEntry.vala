// SPDX-License-Identifier: MIT
namespace Permissions {

/* A row of a menu: what an entry can be, and why it cannot if that is so. */
public class Choice : Object {
    public int code { get; construct; }
    public string name { get; construct; }
    public string? reason { get; set; }

    public Choice(Morvane.Choice choice) {
        Object(code: choice.code, name: choice.name, reason: choice.reason);
    }
}

/* What a menu can change of an entry. */
public enum Aspect { RULE, PERMISSIONS, APPLIES_TO }

/* The entries for somebody in the lists of several items, as one. An edit is made in each of these lists, and changes
   nothing else there. */
public class SharedEntry : Object {
    /* The value of an aspect in which the items differ. */
    public const int DIFFERS = int.MIN;

    /* Something of the entry may be another now. It comes once for all that one click has changed. */
    public signal void changed();

    /* One for each item; null where an item has no such entry. */
    public Morvane.AclEntry?[] of_items;

    private Morvane.AclEntry[] parts = {};
    private ListStore? boxes = null;
    private uint source = 0;

    public SharedEntry(Morvane.AclEntry?[] of_items) {
        this.of_items = of_items;
        foreach (var part in of_items) {
            if (part != null)
                take(part);
        }
    }

    private void take(Morvane.AclEntry part) {
        parts += part;
        part.notify.connect(tell_soon);
    }

    /* Gives an item that has no such entry one. */
    public void extend(uint item, Morvane.AclEntry part) {
        of_items[item] = part;
        take(part);
        boxes = null;
        tell_soon();
    }

    /* By what entries of several items are found to be the same. */
    public static string key_of(Morvane.AclEntry entry) {
        var is_base = entry.subject == Morvane.Subject.OWNER || entry.subject == Morvane.Subject.OWNING_GROUP;
        return "%d %d %s %s".printf(entry.subject, entry.rule, entry.inherited.to_string(), is_base ? "" : entry.who);
    }

    public bool is_everywhere { get { return parts.length == of_items.length; } }

    public string who {
        owned get {
            var text = text_of("who", entry => entry.who);
            if (text == "") {
                text = parts[0].subject == Morvane.Subject.OWNER ? _("owner of each") : _("owning group of each");
            }
            // TRANSLATORS: a user or group whom not all of the items that were opened together have in their lists
            return is_everywhere ? text : _("%s (%u of %u items)").printf(text, parts.length, of_items.length);
        }
    }

    public string rule_text { owned get { return shown(text_of("rule-text", entry => entry.rule_text)); } }
    public string permissions_text {
        owned get { return shown(text_of("permissions-text", entry => entry.permissions_text)); }
    }
    public string applies_to_text {
        owned get { return shown(text_of("applies-to-text", entry => entry.applies_to_text)); }
    }
    public string inherited_text { owned get { return inherited ? _("yes") : _("no"); } }
    /* One that is inherited in one item is inherited in all. */
    public bool inherited { get { return parts[0].inherited; } }

    /* Why the entry cannot be removed somewhere; null if it can. */
    public string? keep_reason {
        owned get {
            foreach (var part in parts) {
                var reason = part.keep_reason;
                if (reason != null)
                    return reason;
            }
            return null;
        }
    }

    /* A list of SharedPermission. */
    public ListModel permissions {
        get {
            if (boxes == null) {
                ListModel[] lists = {};
                foreach (var part in parts)
                    lists += part.permissions;
                boxes = SharedPermission.of_lists(lists);
            }
            return boxes;
        }
    }

    public int code_of(Aspect aspect) {
        return text_of_aspect(aspect) == _("differs") ? DIFFERS : code_of_part(parts[0], aspect);
    }

    public string text_of_aspect(Aspect aspect) {
        return aspect == Aspect.RULE ? rule_text : aspect == Aspect.PERMISSIONS ? permissions_text : applies_to_text;
    }

    /* What the aspect can be in any of the items. */
    public Choice[] choices_of(Aspect aspect) {
        Choice[] choices = {};
        var by_code = new HashTable<int, Choice>(direct_hash, direct_equal);
        foreach (var part in parts) {
            var list = aspect == Aspect.RULE ? part.list_rules()
                       : aspect == Aspect.PERMISSIONS ? part.list_permission_groups() : part.list_applies_to();
            for (uint i = 0; i != list.get_n_items(); ++i) {
                var choice = (Morvane.Choice) list.get_item(i);
                var known = by_code[choice.code];
                if (known == null) {
                    by_code[choice.code] = known = new Choice(choice);
                    choices += known;
                } else if (choice.reason == null) {
                    known.reason = null;
                }
            }
        }
        return choices;
    }

    /* Has the aspect be this wherever it can be. */
    public void choose(Aspect aspect, int code) {
        foreach (var part in parts) {
            if (aspect == Aspect.RULE)
                part.rule = (Morvane.Rule) code;
            else if (aspect == Aspect.PERMISSIONS)
                part.permission_group = (Morvane.PermissionGroup) code;
            else
                part.applies_to = code;
        }
    }

    private static int code_of_part(Morvane.AclEntry part, Aspect aspect) {
        return aspect == Aspect.RULE ? (int) part.rule
               : aspect == Aspect.PERMISSIONS ? (int) part.permission_group : part.applies_to;
    }

    private delegate string TextOf(Morvane.AclEntry entry);

    /* Empty if they differ. */
    private string text_of(string property, TextOf text_of_part) {
        var text = text_of_part(parts[0]);
        for (var i = 1; i < parts.length; ++i) {
            if (text_of_part(parts[i]) != text)
                return "";
        }
        return text;
    }

    // TRANSLATORS: stands in a table where the items that were opened together do not have the same
    private static string shown(string text) {
        return text == "" ? _("differs") : text;
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

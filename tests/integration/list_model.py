# SPDX-License-Identifier: MIT
"""What entries ask for that are to be written to a POSIX list, worked out from the rules alone.

Entries are those that `morvane acl --json` prints, in the order in which they count. What they ask for is told in
three ways: which of them a list cannot hold, by the names in the refusal (`losses`), and what a user may do to the
item (`Asked.may`) or to what is made in it.
"""
from typing import NamedTuple

READ, WRITE, EXECUTE = 4, 2, 1
RIGHTS = READ, WRITE, EXECUTE

EXTENDED = {READ: "Read Extended Attributes", WRITE: "Write Extended Attributes"}
BOXES = {False: {READ: {"Read Data", EXTENDED[READ]},
                 WRITE: {"Write Data", "Append Data", EXTENDED[WRITE]},
                 EXECUTE: {"Execute File"}},
         True: {READ: {"List Folder Contents", EXTENDED[READ]},
                WRITE: {"Create Files", "Create Folder", "Delete Subfolders and Files", EXTENDED[WRITE]},
                EXECUTE: {"Traverse Folder"}}}
ALWAYS = {"Read Attributes", "Read Permissions"}
OWNERS = {"Write Attributes", "Change Permissions", "Change Owner"}
BELOW = {"Child files", "Child folders", "All descendants"}

EVERYONE, CREATOR, CREATOR_GROUP = ("everyone",), ("creator",), ("creator group",)


class Item(NamedTuple):
    is_folder: bool
    owner: tuple      # ("user", number)
    group: tuple      # ("group", number)
    executable: bool  # somebody can execute it


class Loss(NamedTuple):
    entry: str  # "deny group staff"
    box: str    # empty where it is none


class Statement(NamedTuple):
    """What one entry says, in rights."""
    text: str
    who: tuple
    flat: bool
    deny: bool
    rights: int
    of_item: bool
    of_children: bool
    executes_with_read: bool


def bits(*rights):
    return sum(set(rights))


def statement_of(entry, who, item):
    """An entry's statement, None if it says nothing, and what is lost of it by itself."""
    deny = entry["tag"] == 2
    text = ("deny " if deny else "allow ") + text_of(entry, who)
    if not entry["isAcl"]:
        if deny or who not in (item.owner, item.group, EVERYONE):
            return None, [Loss(text, "")]
        rights = bits(*(right for right, node in zip(RIGHTS, entry["permissions"]) if node["state"] == 1))
        return Statement(text, who, True, False, rights, True, False, False), []
    groups = [{box["name"]: box["state"] == 1 for box in group["children"]} for group in entry["permissions"]]
    lost = []
    of_item, of_children = True, False
    if item.is_folder:
        on = {name for name, is_on in groups[3].items() if is_on}
        of_item, of_children = "This item" in on, BELOW <= on
        if on & BELOW and not of_children:
            lost.append("")
            of_children = deny  # what allows to a part reaches nobody, what denies reaches all
        elif not of_item and not of_children:
            lost.append("")
    is_owners = who == CREATOR or (who == item.owner and not of_children)
    rights, executes_with_read, single = 0, False, set()
    for name, boxes in zip(("Read", "Write", "Administration"), groups):
        if deny or not all(boxes.values()):
            single |= {box for box, is_on in boxes.items() if is_on}
        elif name == "Read":
            rights, executes_with_read = rights | READ | EXECUTE, True
        elif name == "Write":
            rights |= WRITE
        elif not is_owners:
            lost.append(name)
    for right, boxes in BOXES[item.is_folder].items():
        on = single & boxes
        if on and on != boxes:
            lost += on
        if on == boxes or (deny and on):
            rights |= right
            if right == EXECUTE:
                executes_with_read = False
    held = set() if deny else ALWAYS | (OWNERS if is_owners else set())
    lost += single - held - set().union(*BOXES[item.is_folder].values())
    if not of_item and not of_children:
        return None, [Loss(text, box) for box in lost]
    return (Statement(text, who, False, deny, rights, of_item, of_children, executes_with_read),
            [Loss(text, box) for box in lost])


def text_of(entry, who):
    if len(who) == 1 or entry["identity"].startswith(("uid ", "gid ")):
        return entry["identity"]
    return f"{who[0]} {entry['identity']}"


class Asked:
    """What entries ask for: of the item itself, or (`of_children`) of what is made in it.

    `read` are the entries that were read; of a list that speaks of children but not of their owner, group or
    others, `classes` says what these have: (owner, group, others) as the item has them."""

    def __init__(self, statements, item, read=(), of_children=False, classes=None):
        self.owner = CREATOR if of_children else item.owner
        self.group = CREATOR_GROUP if of_children else item.group
        self.beside = ("beside", *self.group)
        self.statements = [s for s in statements if (s.of_children if of_children else s.of_item)]
        if not of_children:
            # Whoever makes an item is its owner.
            same = {CREATOR: item.owner, CREATOR_GROUP: item.group}
            self.statements = [s._replace(who=same.get(s.who, s.who)) for s in self.statements]
            # What an entry beside its class gives to the owner is nothing, and to the owning group something of its
            # own: it stays as it is.
            for who, kept_as in ((item.owner, None), (item.group, self.beside)):
                now, then = ([(s.deny, s.rights) for s in some if s.who == who and s.of_item and not s.flat]
                             for some in (self.statements, read))
                # Where nothing else is said of the class, it is what is said of the class.
                if now and now == then and any(s.who == who and s.flat for s in self.statements):
                    self.statements = [s._replace(who=kept_as) if s.who == who and not s.flat else s
                                       for s in self.statements]
            self.statements = [s for s in self.statements if s.who]
        self.named = {s.who for s in self.statements}
        # What everyone is allowed is not for these.
        self.closed = {s.who for s in self.statements if s.flat} | {self.beside}
        self.classes = classes and dict(zip((CREATOR, CREATOR_GROUP, EVERYONE), classes))

    def principals(self, user, groups):
        """Whose entries count for the user, who has these groups."""
        if user == self.owner:
            return [self.owner]
        if user in self.named:
            return [user]
        member_of = [g for g in groups if g in self.named or g == self.group]
        if self.group in member_of and self.beside in self.named:
            member_of.append(self.beside)
        return member_of or [EVERYONE]

    def may(self, user, groups, right, members_too=True):
        """Whether the user may. `members_too`: a denial for a group bears on whoever is in it."""
        return any(self.decision(p, groups if members_too else (), right) for p in self.principals(user, groups))

    def decision(self, principal, groups, right):
        if self.classes and principal in self.classes and principal not in self.named:
            # What the list does not speak of is taken from the item's own.
            denied = any(s.deny and s.rights & right and (s.who == EVERYONE or s.who in groups) for s in self.statements)
            return bool(self.classes[principal] & right) and not denied
        for s in self.statements:
            if not s.rights & right:
                continue
            if s.deny and (s.who in (principal, EVERYONE) or s.who in groups or
                           (s.who == self.beside and self.group in groups)):
                return False
            if not s.deny and (s.who == principal or (s.who == EVERYONE and principal not in self.closed)):
                return True
        return False

    def escaped_denials(self, had):
        """What a denial for a group cannot hold: a member of another group that is allowed the same further down
        has it, and so has the member who makes an item and is then its owner. Not what was so: `had(group, right)`
        says what it had, and whether it was denied it."""
        groups = "group", "beside", CREATOR_GROUP[0]
        for place, denial in enumerate(self.statements):
            if not denial.deny or denial.who[0] not in groups:
                continue
            for right in RIGHTS:
                if not denial.rights & right or self.is_decided(denial.who, right, place):
                    continue
                for other in self.named | {self.group} | ({CREATOR} if self.owner == CREATOR else set()):
                    if other[0] not in (*groups, CREATOR[0]) or self.is_same_group(other, denial.who):
                        continue
                    if self.decision(other, (), right) and self.allowed_at(other, right) > place and \
                            not (had(denial.who, right)[1] and had(other, right)[0]):
                        yield denial, other, right

    def is_same_group(self, one, other):
        own = self.group, self.beside
        return one == other or (one in own and other in own)

    def is_decided(self, principal, right, place):
        """Whether something before the place decides."""
        return any(s.rights & right and (s.who == principal or
                                         (s.who == EVERYONE and (s.deny or principal not in self.closed)))
                   for s in self.statements[:place])

    def allowed_at(self, principal, right):
        for place, s in enumerate(self.statements):
            if s.rights & right and (s.who == principal or (s.who == EVERYONE and principal not in self.closed)):
                return place
        return len(self.statements)


def without_execution_by_read(statements, item):
    """"Read" as a whole does not turn a file executable that nobody can execute."""
    if item.is_folder or item.executable or any(s.rights & EXECUTE and not s.deny and not s.executes_with_read for s in statements):
        return statements
    return [s._replace(rights=s.rights & ~EXECUTE) if s.executes_with_read else s for s in statements]

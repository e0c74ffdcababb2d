"""What the delegation library must do, as plain data: an account source, the stored tables, and the exported writes over them.

    model = Model()
    model.host.users["ann"] = 1001
    model.call("DelegationDelegationCreate", delegation("Desk", 10, {"queue"}, ["user ann"]))   # (True, 1)
    model.tabs("ann")                                                                           # (True, {"enable_tabs": ["queue"]})

Written from the requirements alone, with no look at the library's code: keep it so, or a mistake made there is made here too.
Link tables are lists in row order. A write that meets bad input keeps what it stored until then; one that meets an account
source that does not answer leaves everything as it was.
"""
from world import TABS

BUFFER = 2047  # bytes of a statement; the last ";" may be lost
PRIMARY_GROUP = 100  # of every account
CREATE_DELEGATION = "insert into  delegation_table (delegationidx, name, color, priority) values (NULL, '{}', '{}', '{}')"
UPDATE_DELEGATION = "replace into  delegation_table (delegationidx, name, color, priority) values ('{}', '{}', '{}', '{}')"
CREATE_ENTRY = "insert into  delegation_entry_table (delegationentryidx, type, data) values (NULL, '{}', '{}')"


BadInput = type("BadInput", (Exception,), {})
Outage = type("Outage", (Exception,), {})


def require(holds):
    if not holds:
        raise BadInput


def require_fits(statement, *values):
    require(len(statement.format(*(str(value).replace("'", "''") for value in values)).encode()) <= BUFFER)


def is_text(value):
    return isinstance(value, str) and "\0" not in value


def is_integer(value):
    return isinstance(value, int) and not isinstance(value, bool) and -2**31 <= value < 2**31


def read_delegation(document):
    require(isinstance(document, dict))
    index = document.get("id", -1)
    name, color, priority = (document.get(member) for member in ("name", "color", "priority"))
    require(is_text(name) and name and is_text(color) and is_integer(priority) and is_integer(index))
    return index, name, color, priority


def read_entries(document):
    require(all(tab in document for tab in TABS))
    values = [document[tab] for tab in TABS]
    require(all(is_text(value) or value is None or isinstance(value, int) for value in values))
    return [(tab, "" if value is None else str(value).lower() if isinstance(value, bool) else str(value))
            for tab, value in zip(TABS, values)]


def each_once(users):
    """The first (uid, name) of each uid."""
    first = dict(reversed(users))
    return [(uid, first[uid]) for uid in dict(users)]


def linked(links, number, names):
    """The (id, name) of everybody stored who is linked to a number, by id."""
    return [(owner, names[owner]) for owner in sorted(owner for owner, other in links if other == number) if owner in names]


def put(links, row):
    """An "insert or replace": the row goes to the end."""
    drop(links, lambda other: other == row)
    links.append(row)


def drop(links, unwanted):
    links[:] = [row for row in links if not unwanted(row)]


class Host:
    def __init__(self):
        self.users, self.groups = {}, {}  # name: uid, name: (gid, [member, ...])
        self.down = None  # "passwd" or "group": the source that does not answer

    def numbers(self, source):
        if source == self.down:
            raise Outage
        return self.users if source == "passwd" else {name: gid for name, (gid, _) in self.groups.items()}

    def find(self, source, name):
        require(is_text(name))
        require(name or source == "group")  # a user without a name is not asked for
        numbers = self.numbers(source)
        require(name in numbers)
        return numbers[name], name

    def name(self, source, number):
        return next((name for name, other in self.numbers(source).items() if other == number), None)

    def members(self, gid):
        """A listed name without an account is left out."""
        listed, users = self.groups[self.name("group", gid)][1], self.numbers("passwd")
        names = dict.fromkeys([*listed, *users] if gid == PRIMARY_GROUP else listed)
        return [(users[name], name) for name in names if name in users]


class Model:
    KEYED = {"users": "user_table", "groups": "group_table", "delegations": "delegation_table",
             "entries": "delegation_entry_table", "effective": "user2delegation_real_table"}
    LINKS = {"user_delegations": "user2delegation_table", "group_delegations": "group2delegation_table",
             "memberships": "user2group_table", "delegation_entries": "delegation2delegation_entry_table"}

    def __init__(self, vanish_limit=100):
        self.host, self.vanish_limit, self.out = Host(), vanish_limit, None
        self.users, self.groups = {}, {}  # uid: name, gid: name
        self.delegations, self.entries = {}, {}  # index: (name, color, priority), index: (type, data)
        self.user_delegations, self.group_delegations = [], []  # (uid, delegation), (gid, delegation)
        self.memberships, self.delegation_entries = [], []  # (uid, gid), (delegation, entry)
        self.effective = {}  # uid: delegation

    def tables(self):
        return {table: getattr(self, table).copy() for table in (*self.KEYED, *self.LINKS)}

    def call(self, method, *arguments):
        """An exported write's result and output; the output is None where there is none, or none is defined."""
        before, self.out, result = self.tables(), None, True
        try:
            getattr(self, method)(*arguments)
        except BadInput:
            result = False
        except Outage:
            self.__dict__.update(before, out=None)
            return False, None
        self.effective = {uid: index for uid, index in self.effective.items()
                          if uid in self.users and index in self.candidates(uid)}
        return result, self.out

    # What is read.

    def tabs(self, name):
        try:
            uid, _ = self.host.find("passwd", name)
        except (BadInput, Outage):
            return False, None
        return True, {"enable_tabs": self.switched_on(self.effective.get(uid))}

    def switched_on(self, delegation):
        return sorted(tab for tab, data in self.entries_of(delegation).values() if data == "true")

    def listed(self):
        return {index: {"id": index, "name": name, "color": color, "priority": priority, **dict(self.entries_of(index).values())}
                for index, (name, color, priority) in self.delegations.items()}

    def entries_of(self, delegation):
        return {entry: self.entries[entry] for owner, entry in self.delegation_entries if owner == delegation}

    def groups_of(self, uid):
        return [gid for user, gid in self.memberships if user == uid and gid in self.groups]

    def holders(self, delegation):
        groups = linked(self.group_delegations, delegation, self.groups)
        return each_once(linked(self.user_delegations, delegation, self.users) +
                         [user for gid, _ in groups for user in linked(self.memberships, gid, self.users)])

    def highest_first(self, links, owner):
        return sorted((index for who, index in links if who == owner), key=lambda index: (-self.delegations[index][2], index))

    def candidates(self, uid):
        return self.highest_first(self.user_delegations, uid) + [
            index for gid in self.groups_of(uid) for index in self.highest_first(self.group_delegations, gid)]

    def due(self, uid):
        """Highest priority; of equal ones a direct assignment first, then the earlier membership, then the lower index."""
        return max(self.candidates(uid), key=lambda index: self.delegations[index][2], default=None)

    def settled(self):
        return all(self.effective.get(uid) == self.due(uid) for uid in self.users) and all(
            len(self.entries_of(index)) == len(TABS) for index in self.delegations)

    # The exported writes.

    def DelegationDelegationCreate(self, document):
        index, *fields = read_delegation(document)
        entries = read_entries(document)
        require(index == -1)
        require_fits(CREATE_DELEGATION, *fields)
        index = max(self.delegations, default=0) + 1
        for links, column in ((self.user_delegations, 1), (self.group_delegations, 1), (self.delegation_entries, 0)):
            drop(links, lambda row: row[column] == index)
        self.delegations[index] = tuple(fields)
        self.set_entries(index, entries)
        self.out = index
        if "user_group" in document:
            self.assign(index, document["user_group"])
            self.calculate(uid for uid, _ in self.holders(index))

    def DelegationDelegationUpdate(self, documents):
        documents = [documents] if isinstance(documents, dict) else documents
        require(isinstance(documents, list))
        self.calculate([uid for document in documents for uid, _ in self.update(document)])

    def DelegationDelegationUpdateImpFromSingle(self, document):
        self.out = [{"id": uid, "name": name} for uid, name in self.update(document)]

    def DelegationDelegationDelete(self, indexes):
        indexes = [] if indexes is None else indexes
        require(isinstance(indexes, list))
        affected = []
        for index in indexes:
            require(is_integer(index) and index in self.delegations)
            held = [uid for uid, other in self.effective.items() if other == index]
            affected += held
            for uid in held:
                del self.effective[uid]
            self.unassign(index, linked(self.user_delegations, index, self.users))
            drop(self.group_delegations, lambda row: row[1] == index)
            own = self.entries_of(index)
            drop(self.delegation_entries, lambda row: row[0] == index)
            for entry in own.keys() - {entry for _, entry in self.delegation_entries}:
                del self.entries[entry]
            del self.delegations[index]
        self.calculate(affected)

    def DelegationRefresh(self):
        before = dict(self.users)
        user_names = {uid: self.host.name("passwd", uid) for uid in sorted(self.users)}
        group_names = {gid: self.host.name("group", gid) for gid in sorted(self.groups)}
        for names in (user_names, group_names):
            require(len(names) < 10 or list(names.values()).count(None) * 100 <= len(names) * self.vanish_limit)
        for uid, name in user_names.items():
            if name is None:
                self.remove_user(uid)
            elif name != before[uid]:
                self.users[uid] = name
        for gid, name in group_names.items():
            if name is None:
                self.remove_group(gid)
            else:
                self.groups[gid] = name
                self.empty_group(gid)
                self.fill_group(gid)
        for index in sorted(self.delegations):
            if not self.entries_of(index):  # its creation failed there
                self.set_entries(index, [(tab, "false") for tab in sorted(TABS)])
        self.calculate(self.users)

    # Their steps.

    def update(self, document):
        """Whose effective delegation may change."""
        index, *fields = read_delegation(document)
        require(index in self.delegations)
        require_fits(UPDATE_DELEGATION, index, *fields)
        self.delegations[index] = tuple(fields)
        self.set_entries(index, read_entries(document))
        affected = self.holders(index)
        if "user_group" in document:
            self.assign(index, document["user_group"])
        return each_once(affected + self.holders(index))

    def calculate(self, uids):
        for uid in uids:
            self.effective.pop(uid, None)
            if self.due(uid) is not None:
                assert uid in self.users
                self.effective[uid] = self.due(uid)

    def assign(self, index, assignees):
        require(isinstance(assignees, list))
        require(all(isinstance(item, dict) and item.get("type") in ("user", "group") for item in assignees))
        users = [self.host.find("passwd", item.get("name")) for item in assignees if item["type"] == "user"]
        for uid, name in users:
            self.add_user(uid, name)
        present = linked(self.user_delegations, index, self.users)
        self.unassign(index, [user for user in present if user not in users])
        for uid, name in users:
            if (uid, name) not in present:
                self.add_user(uid, name)
                put(self.user_delegations, (uid, index))
        groups = [self.host.find("group", item.get("name")) for item in assignees if item["type"] == "group"]
        for gid, name in groups:
            if gid not in self.groups:  # nor does a new row here take over links
                drop(self.group_delegations, lambda row: row[0] == gid)
                drop(self.memberships, lambda row: row[1] == gid)
                self.groups[gid] = name
                self.fill_group(gid)
        present = linked(self.group_delegations, index, self.groups)
        unwanted = {gid for gid, name in present if (gid, name) not in groups}
        drop(self.group_delegations, lambda row: row[1] == index and row[0] in unwanted)
        for gid, name in groups:
            if (gid, name) not in present:
                put(self.group_delegations, (gid, index))

    def add_user(self, uid, name):
        """A new row does not take over links of an earlier owner of the uid."""
        if uid not in self.users:
            for links in (self.user_delegations, self.memberships):
                drop(links, lambda row: row[0] == uid)
            self.users[uid] = name

    def unassign(self, index, users):
        drop(self.user_delegations, lambda row: row[1] == index and row[0] in dict(users))
        self.remove_orphans(users)

    def remove_orphans(self, users):
        for uid, _ in users:
            if not self.groups_of(uid) and uid not in dict(self.user_delegations):
                self.users.pop(uid, None)

    def remove_user(self, uid):
        """Empties the user's groups of everybody; their own turn in the refresh fills them again."""
        drop(self.user_delegations, lambda row: row[0] == uid)
        for gid in self.groups_of(uid):
            self.empty_group(gid)
        self.users.pop(uid, None)

    def remove_group(self, gid):
        """Only the link to the highest delegation goes with the group."""
        for index in self.highest_first(self.group_delegations, gid)[:1]:
            self.group_delegations.remove((gid, index))
        self.empty_group(gid)
        del self.groups[gid]

    def empty_group(self, gid):
        members = linked(self.memberships, gid, self.users)
        drop(self.memberships, lambda row: row[1] == gid and row[0] in dict(members))
        self.remove_orphans(members)

    def fill_group(self, gid):
        for uid, name in self.host.members(gid):
            self.add_user(uid, name)
            put(self.memberships, (uid, gid))

    def set_entries(self, index, entries):
        """One stored row for each distinct pair. The delegation's old ones stay, whether or not anybody else has them."""
        stored = {entry: number for number, entry in self.entries.items()}
        for entry in entries:
            if entry not in stored:
                require_fits(CREATE_ENTRY, *entry)
                stored[entry] = max(self.entries, default=0) + 1
                self.entries[stored[entry]] = entry
        drop(self.delegation_entries, lambda row: row[0] == index)
        self.delegation_entries += [(index, stored[entry]) for entry in entries]

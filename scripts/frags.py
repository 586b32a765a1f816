"""For gdb: the command `frags` prints a list as a fragment file shows it.

    gdb -x scripts/frags.py --args build/debug/upgrade -m old.conf -m init.conf out.conf
    (gdb) break norm41
    (gdb) run
    (gdb) frags db                       the whole database, a line for each value
    (gdb) frags ffind(db, "policy")      this node, its siblings behind it and all below

The argument is a `Frag *` or a `FragList`. A node with neither value nor children, which no file shows, is a line without
`=`. Nothing is run or changed in the program, so it works on a core file too, as long as the argument calls nothing.
"""
import gdb


def text(pointer):
    return pointer.string("latin-1")


def rows(table):
    """The rows of one of the tables of names in fragname.cpp, up to the one of nulls."""
    row = gdb.parse_and_eval("'%s'" % table)[0].address
    while row.dereference()[row.type.target().fields()[0]] != 0:
        yield [row.dereference()[field] for field in row.type.target().fields()]
        row += 1


class Frags(gdb.Command):
    def __init__(self):
        super().__init__("frags", gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)

    def invoke(self, argument, from_tty):
        first = gdb.parse_and_eval(argument)
        if str(first.type.strip_typedefs()) == "Frag **":
            first = first.dereference()
        prefixes = [(text(prefix), int(bit)) for prefix, bit in rows("(anonymous namespace)::prefix_tab")]
        file_names = {text(stored): text(name) for name, stored in rows("attr_map_tab")}
        pending = [(first, "")]
        while pending:
            frag, key = pending.pop()
            if not frag:
                continue
            pending.append((frag["next"], key))
            prefix = next((p for p, bit in prefixes if int(frag["attr"]) & bit), "")
            key += prefix + file_names.get(text(frag["name"]), text(frag["name"]))
            if frag["value"]:
                print("%s=%s" % (key, frag["value"].string("latin-1", length=int(frag["vlen"]))))
            elif not frag["child"]:
                print(key)
            pending.append((frag["child"], key + "_"))


Frags()

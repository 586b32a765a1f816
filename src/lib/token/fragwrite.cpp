// The fragment-file writer, and the save of a database.
#include "frag_tools.h"
#include "nsym.h"
#include "nupgrade.h"

#include <cstring>

namespace {

constexpr int DESCENT_LIMIT = 180; // what stands below a node is left out if its key is this long in front of its name

char outbuf[1 << 18];

enum write_result { WRITTEN = 0, LEFT_OUT = 1, WRITE_FAILED = 2 };

write_result write_list(FILE *stream, Frag *first, char *position) {
    write_result result = WRITTEN;
    for (Frag *frag = first; frag; frag = frag->next) {
        const char *prefix = attr_prefix(frag->attr);
        const char *name = attr_revmap(frag->name);
        size_t prefix_len = strlen(prefix);
        size_t name_len = strlen(name);
        // A key cut short would be another key, so one that does not fit with its `=` is not written at all.
        size_t room = KEYNAME_SIZE - static_cast<size_t>(position - keynamebuf);
        if (prefix_len + name_len + 1 > room) {
            result = LEFT_OUT;
            continue;
        }
        memcpy(position, prefix, prefix_len);
        memcpy(position + prefix_len, name, name_len);
        char *end = position + prefix_len + name_len;
        size_t key_len = static_cast<size_t>(end - keynamebuf);

        if (frag->value) {
            *end = '=';
            if (fwrite(keynamebuf, 1, key_len + 1, stream) < key_len + 1)
                return WRITE_FAILED;
            frag->value[frag->vlen] = '\n';
            fwrite(frag->value, 1, static_cast<size_t>(frag->vlen) + 1, stream);
            frag->value[frag->vlen] = 0;
        }
        if (frag->child && keynamelen < DESCENT_LIMIT) {
            *end = '_';
            int len = keynamelen;
            keynamelen = static_cast<int>(key_len) + 1;
            write_result below = write_list(stream, frag->child, end + 1);
            keynamelen = len;
            if (below == WRITE_FAILED)
                return below;
            if (below == LEFT_OUT)
                result = below;
        }
    }
    return result;
}

} // namespace

int outffile(FILE *stream, Frag *first, char *position) { return write_list(stream, first, position) != WRITTEN; }

int exportffile(const char *name, FragList list, int version) {
    // Behind the opening nothing takes memory, since running out of it would leave half an output.
    if (version == 99)
        reserve_xml(list);
    FILE *stream = stdout;
    if (name) {
        stream = open_file(name, "w");
        if (!stream)
            return 1;
    }
    setvbuf(stream, outbuf, _IOFBF, sizeof outbuf);
    int result = 0;
    if (version == 99) {
        static const char head[] = "<?xml version=\"1.0\"?>\n";
        static const char root[] = "<moatwall.conf>\n";
        static const char root_end[] = "</moatwall.conf>\n";
        fwrite(head, 1, sizeof head - 1, stream);
        fwrite(root, 1, sizeof root - 1, stream);
        for (Frag *frag = *list; frag; frag = frag->next)
            outxmlfile(stream, frag, 2);
        fwrite(root_end, 1, sizeof root_end - 1, stream);
    } else {
        keynamelen = 0;
        keynamebuf[0] = 0;
        result = outffile(stream, *list, keynamebuf);
    }
    fclose(stream);
    return result;
}

int exportenv(const char *name, int version) {
    if (!cur_database)
        cur_database = &def_database;
    if (Frag *global = ffind(cur_database, "def_proxy_global")) {
        fset(cur_database, "def_proxy_global_name", "*");
        renamefrag(global, "*");
    }
    if (version == 1 || version == 41) {
        norm41states(cur_database);
        norm41(cur_database);
    }
    char stamp[32];
    snprintf(stamp, sizeof stamp, "%.3d", version);
    fset(cur_database, "version_moatwall.conf", stamp);
    return exportffile(name, cur_database, version);
}

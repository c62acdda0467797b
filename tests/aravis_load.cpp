// Loads a GenICam document into libaravis and walks all features below Root. Prints each one's name, and what the
// library had to say; fails when one is missing or a message came by the way of errors.
#include <arv.h>

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace {

int messages = 0;

GLogWriterOutput count(GLogLevelFlags, const GLogField* fields, gsize field_count, gpointer) {
    ++messages;
    for (gsize i = 0; i < field_count; ++i) {
        if (std::string{fields[i].key} == "MESSAGE")
            std::fprintf(stderr, "%s\n", static_cast<const char*>(fields[i].value));
    }
    return G_LOG_WRITER_HANDLED;
}

void walk(ArvGc* gc, const char* name, int depth) {
    ArvGcNode* const node = arv_gc_get_node(gc, name);
    if (node == nullptr || depth > 20) {
        std::fprintf(stderr, "no node '%s'\n", name);
        ++messages;
        return;
    }
    std::printf("%s\n", name);
    if (!ARV_IS_GC_CATEGORY(node)) return;
    for (const GSList* each = arv_gc_category_get_features(ARV_GC_CATEGORY(node)); each != nullptr; each = each->next)
        walk(gc, static_cast<const char*>(each->data), depth + 1);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2 || dup2(STDOUT_FILENO, STDERR_FILENO) < 0) return 2;
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // whole lines between the messages
    g_log_set_writer_func(count, nullptr, nullptr);
    arv_debug_enable("all:2");
    std::ifstream file{argv[1], std::ios::binary};
    const std::string text{std::istreambuf_iterator<char>{file}, {}};
    ArvGc* const gc = arv_gc_new(nullptr, text.data(), text.size());
    if (gc == nullptr) return 1;
    walk(gc, "Root", 0);
    g_object_unref(gc);
    return messages == 0 ? 0 : 1;
}

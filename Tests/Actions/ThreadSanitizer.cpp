// Read by ThreadSanitizer when the program starts; without it nobody calls this.
//
// The distribution's GLib is not instrumented: its allocator hands memory from thread to thread with
// synchronisation that the sanitizer does not see.
extern "C" const char* __tsan_default_suppressions() {
    return "race:libglib-2.0.so\n"
           "race:libgobject-2.0.so\n"
           "race:libgio-2.0.so\n";
}

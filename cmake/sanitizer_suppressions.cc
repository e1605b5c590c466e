// SPDX-License-Identifier: MIT
// The sanitizers' findings that are known and meant. Linked into every executable of a sanitized
// build, so that it runs the same by hand and in the tests.

// Kept on purpose, for the life of the process: the label that smack_getlabel hands out, and the
// path of each event of the recovery directory.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:is_dir_has_smack_label\n"
         "leak:RecoveryFileWatcher::g_callback\n";
}

// The distribution's GLib is not instrumented, and what it synchronises cannot be seen.
extern "C" const char* __tsan_default_suppressions() {
  return "called_from_lib:libglib-2.0\n"
         "called_from_lib:libgio-2.0\n"
         "called_from_lib:libgobject-2.0\n";
}

// The distribution's GLib has no frame pointers: only the slow unwinder gets from its allocations
// to the function that a suppression names.
extern "C" const char* __asan_default_options() {
  return "fast_unwind_on_malloc=0";
}

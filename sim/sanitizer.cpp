// Defaults of camsim's AddressSanitizer builds; empty in all others.
#if defined(__has_feature)
#if __has_feature(address_sanitizer)

// GLib grows a table that it made while it was loaded, and leaves the old one on purpose; only the slow
// unwinder sees that an allocation comes from there.
// NOLINTBEGIN(bugprone-reserved-identifier): the sanitizer's own names.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
  return "fast_unwind_on_malloc=0";
}
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:_dl_init\n";
}
// NOLINTEND(bugprone-reserved-identifier)

#endif
#endif

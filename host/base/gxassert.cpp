#include "host/base/gxassert.h"

#include <atomic>
#include <cstdio>

namespace {

std::atomic<int> g_iAsserts{0};
std::atomic<void (*)(const char*)> g_pTraceHook{nullptr};

}  // namespace

void AssertWrap(const char* file, int line) {
  ++g_iAsserts;
  char text[256];
  std::snprintf(text, sizeof text, "ASSERTION FAILED: %s, line %d", file != nullptr ? file : "?", line);
  TraceWrap(text);
}

int AssertCount() {
  return g_iAsserts;
}

void TraceWrap(const char* text) {
  if (text == nullptr) return;
  if (auto* hook = g_pTraceHook.load()) {
    hook(text);
  } else {
    std::fprintf(stderr, "%s\n", text);
  }
}

void SetTraceHook(void (*hook)(const char* text)) {
  g_pTraceHook = hook;
}

// SPDX-License-Identifier: MIT
// Owning pointers for what GLib hands out. Stateless; any thread.
#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>

struct GObjectUnref {
  void operator()(gpointer object) const { g_object_unref(object); }
};
struct GErrorFree {
  void operator()(GError* error) const { g_error_free(error); }
};
struct GVariantUnref {
  void operator()(GVariant* variant) const { g_variant_unref(variant); }
};
struct GFree {
  void operator()(gpointer memory) const { g_free(memory); }
};

template <typename Object>
using GObjectPtr = std::unique_ptr<Object, GObjectUnref>;
using GErrorPtr = std::unique_ptr<GError, GErrorFree>;
using GVariantPtr = std::unique_ptr<GVariant, GVariantUnref>;
using GCharPtr = std::unique_ptr<gchar, GFree>;

// A package id as the bus can carry it. Ids from the queue file are arbitrary bytes; a string that
// is not UTF-8 in a message would end the connection.
inline GCharPtr to_bus_string(const std::string& text) {
  return GCharPtr(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
}

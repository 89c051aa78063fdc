#pragma once

// Part of <vekmetrics/vekmetrics.hpp>: owners of references, and dimensions.

#include <vekmetrics/vekmetrics.h>

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace vek {

// How a reference to a T is taken and dropped. Unless specialised, T is an object type.
template <typename T>
struct Counting {
  static void ref(T *object) { g_object_ref(object); }
  static void unref(T *object) { g_object_unref(object); }
};

template <>
struct Counting<VekMetricDimension> {
  static void ref(VekMetricDimension *dimension) { vek_metric_dimension_ref(dimension); }
  static void unref(VekMetricDimension *dimension) { vek_metric_dimension_unref(dimension); }
};

template <>
struct Counting<VekMetricSnapshot> {
  static void ref(VekMetricSnapshot *snapshot) { vek_metric_snapshot_ref(snapshot); }
  static void unref(VekMetricSnapshot *snapshot) { vek_metric_snapshot_unref(snapshot); }
};

template <>
struct Counting<VekMetricDatum> {
  static void ref(VekMetricDatum *datum) { vek_metric_datum_ref(datum); }
  static void unref(VekMetricDatum *datum) { vek_metric_datum_unref(datum); }
};

// Owns one reference, or nothing. The constructor takes over the reference that a C function
// returned, so it must not be given a borrowed pointer. A copy takes another reference. An owner
// converts to its pointer, so it can be passed to every C function.
template <typename T>
class Owner {
public:
  using Type = T;

  Owner() = default;
  explicit Owner(T *owned) : pointer(owned) {}
  Owner(const Owner &other) : pointer(other.pointer) {
    if (pointer)
      Counting<T>::ref(pointer);
  }
  Owner(Owner &&other) noexcept : pointer(std::exchange(other.pointer, nullptr)) {}
  Owner &operator=(Owner other) noexcept {
    std::swap(pointer, other.pointer);
    return *this;
  }
  ~Owner() {
    if (pointer)
      Counting<T>::unref(pointer);
  }

  operator T *() const { return pointer; }
  operator gpointer() const { return pointer; }
  explicit operator bool() const { return pointer != nullptr; }

  friend bool operator==(const Owner &a, const Owner &b) { return a.pointer == b.pointer; }
  friend bool operator!=(const Owner &a, const Owner &b) { return a.pointer != b.pointer; }
  friend bool operator==(const Owner &owner, std::nullptr_t) { return !owner; }
  friend bool operator!=(const Owner &owner, std::nullptr_t) { return !!owner; }

private:
  T *pointer = nullptr;
};

// An owner whose C type derives from that of Parent: it is a Parent, and converts to the pointers
// of both types.
template <typename T, typename Parent>
class Derived : public Parent {
public:
  using Type = T;

  Derived() = default;
  explicit Derived(T *owned) : Parent(reinterpret_cast<typename Parent::Type *>(owned)) {}

  operator T *() const { return static_cast<T *>(this->operator gpointer()); }
};

// Makes an owner from a pointer whose C type is that of a base.
template <typename Kind>
Kind adopt(gpointer owned) {
  return Kind(static_cast<typename Kind::Type *>(owned));
}

// The dimensions of a metric: {{"host", host}, {"disk", "sda"}}. It copies the strings, which may
// be computed at run time. Without pairs there are no dimensions, and the vector is NULL.
class Dimensions {
public:
  using Pair = std::pair<std::string_view, std::string_view>;

  Dimensions() = default;
  Dimensions(std::initializer_list<Pair> pairs) : strings(join(pairs)) {}
  // From a container of pairs of strings, such as a std::map.
  template <typename Pairs>
  explicit Dimensions(const Pairs &pairs) : strings(join(pairs)) {}
  Dimensions(const Dimensions &other) : strings(join(other.pairs())) {}
  Dimensions(Dimensions &&other) noexcept = default;
  Dimensions &operator=(Dimensions other) noexcept {
    strings.swap(other.strings);
    return *this;
  }

  // The vector for a C call. It is borrowed, and C calls copy its strings.
  operator gchar **() const { return strings.get(); }

private:
  struct Free {
    void operator()(gchar **strings) const { g_free(strings); }
  };

  // Allocates one block: the vector, followed by the text of all strings.
  template <typename Pairs>
  static gchar **join(const Pairs &pairs) {
    gsize n_strings = 0, n_chars = 0;
    for (const auto &[name, value] : pairs) {
      n_strings += 2;
      n_chars += std::string_view(name).size() + 1 + std::string_view(value).size() + 1;
    }
    if (n_strings == 0)
      return nullptr;

    auto *vector = static_cast<gchar **>(g_malloc((n_strings + 1) * sizeof(gchar *) + n_chars));
    gchar **next = vector;
    auto *text = reinterpret_cast<gchar *>(vector + n_strings + 1);
    const auto append = [&](std::string_view string) {
      *next++ = text;
      text = std::copy(string.begin(), string.end(), text);
      *text++ = '\0';
    };
    for (const auto &[name, value] : pairs) {
      append(name);
      append(value);
    }
    *next = nullptr;
    return vector;
  }

  std::vector<Pair> pairs() const {
    std::vector<Pair> pairs;
    for (gchar **pair = strings.get(); pair && *pair; pair += 2)
      pairs.emplace_back(pair[0], pair[1]);
    return pairs;
  }

  std::unique_ptr<gchar *, Free> strings;
};

}  // namespace vek

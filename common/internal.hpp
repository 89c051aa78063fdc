#pragma once

// What the sources of the library and of its companions share: failed checks, logging, property
// flags, guards, casts, list views. Each library is compiled with its log domain (G_LOG_DOMAIN) and
// the folder that its messages name (VEK_SOURCE_FOLDER).
//
// Private C++ is in the namespace vekin. Applications that include the C++ header see vek alone.

#include <glib-object.h>

#include <cstddef>
#include <string_view>
#include <type_traits>

// A failed check logs a critical that names the function and quotes the condition as it is typed.
// GLib's own macros would name the whole C++ signature here, and can be compiled away.
#define vek_return_if_fail(condition)                               \
  do {                                                              \
    if (!(condition)) [[unlikely]] {                                \
      g_return_if_fail_warning(G_LOG_DOMAIN, __func__, #condition); \
      return;                                                       \
    }                                                               \
  } while (false)

#define vek_return_val_if_fail(condition, value)                    \
  do {                                                              \
    if (!(condition)) [[unlikely]] {                                \
      g_return_if_fail_warning(G_LOG_DOMAIN, __func__, #condition); \
      return value;                                                 \
    }                                                               \
  } while (false)

// Structured messages, with the source path, the line and the function's plain name.
#define vek_log(level, ...)                                                                      \
  do {                                                                                           \
    static constexpr vekin::SourcePath source(VEK_SOURCE_FOLDER, __FILE__);                      \
    g_log_structured_standard(G_LOG_DOMAIN, level, source.text, G_STRINGIFY(__LINE__), __func__, \
                              __VA_ARGS__);                                                      \
  } while (false)
#define vek_warning(...) vek_log(G_LOG_LEVEL_WARNING, __VA_ARGS__)
#define vek_info(...) vek_log(G_LOG_LEVEL_INFO, __VA_ARGS__)
#define vek_debug(...) vek_log(G_LOG_LEVEL_DEBUG, __VA_ARGS__)

// Aborts the process when something inside the library does not hold.
#define vek_assert(condition)                                                              \
  do {                                                                                     \
    if (!(condition)) [[unlikely]] {                                                       \
      static constexpr vekin::SourcePath source(VEK_SOURCE_FOLDER, __FILE__);              \
      g_assertion_message_expr(G_LOG_DOMAIN, source.text, __LINE__, __func__, #condition); \
    }                                                                                      \
  } while (false)

namespace vekin {

// The source path as logs carry it: the library's folder, as in "../vekmetrics/", and the file's
// stem, from whichever folder the compiler was called.
template <std::size_t folder_size, std::size_t file_size>
struct SourcePath {
  char text[folder_size + file_size] = {};

  constexpr SourcePath(const char (&folder)[folder_size], const char (&file)[file_size]) {
    std::string_view(folder).copy(text, folder_size);
    std::string_view stem(file);
    stem = stem.substr(stem.find_last_of('/') + 1);
    stem = stem.substr(0, stem.find('.'));
    stem.copy(text + folder_size - 1, stem.size());
  }
};

// Property flags; in C++ the joined flags need a cast.
inline constexpr auto kConstruct =
    static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_CONSTRUCT | G_PARAM_STATIC_STRINGS);
inline constexpr auto kConstructOnly =
    static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_CONSTRUCT_ONLY | G_PARAM_STATIC_STRINGS);

// The description of a property by one of the g_param_spec_...() functions, with its name for nick
// and blurb: property<g_param_spec_uint>("rotate", 0, G_MAXUINT, 0).
template <auto make_spec, GParamFlags flags = kConstructOnly, typename... Rest>
GParamSpec *property(const char *name, Rest... rest) {
  return make_spec(name, name, name, rest..., flags);
}

// Instances are zero-filled and no constructor runs, so their members must not need one.
template <typename T>
concept ZeroFillable =
    std::is_trivially_default_constructible_v<T> && std::is_trivially_destructible_v<T>;

// Holds a lock for as long as it is in scope.
template <typename Lock, void (*acquire)(Lock *), void (*release)(Lock *)>
class Held {
public:
  explicit Held(Lock &lock) : lock(lock) { acquire(&lock); }
  ~Held() { release(&lock); }
  Held(const Held &) = delete;
  Held &operator=(const Held &) = delete;

private:
  Lock &lock;
};

using MutexLock = Held<GMutex, g_mutex_lock, g_mutex_unlock>;
using ReaderLock = Held<GRWLock, g_rw_lock_reader_lock, g_rw_lock_reader_unlock>;
using WriterLock = Held<GRWLock, g_rw_lock_writer_lock, g_rw_lock_writer_unlock>;

// The elements of a GSList, for range-for.
template <typename T>
class Each {
public:
  explicit Each(GSList *list) : list(list) {}

  struct Iterator {
    GSList *node;

    T *operator*() const { return static_cast<T *>(node->data); }
    Iterator &operator++() {
      node = node->next;
      return *this;
    }
    bool operator!=(const Iterator &other) const { return node != other.node; }
  };

  Iterator begin() const { return {list}; }
  Iterator end() const { return {nullptr}; }

private:
  GSList *list;
};

// Lets go of a T; GLib's containers call it for their elements.
template <typename T, void (*release)(T *)>
void release_element(gpointer element) {
  release(static_cast<T *>(element));
}

// A string vector joined by ".", as g_strjoinv() does it, at the end of a text. Byte by byte: that
// is inline, and the strings are short.
inline void append_joined(GString *text, char **strings) {
  for (char **string = strings; *string; string++) {
    if (string != strings)
      g_string_append_c(text, '.');
    for (const char *c = *string; *c; c++)
      g_string_append_c(text, *c);
  }
}

// Signed addition that wraps; plain overflow is undefined.
constexpr gint64 wrapping_add(gint64 a, gint64 b) {
  return static_cast<gint64>(static_cast<guint64>(a) + static_cast<guint64>(b));
}

// A cast of what is known to be a T, as every slot knows its instance; GObject's cast macros ask
// the type system again.
template <typename T>
T *as(gpointer instance) {
  return static_cast<T *>(instance);
}

// Whether an instance is of a type or of one derived from it. GObject tells a derived type only by
// a call, and a type itself only after it was asked for; here the type that passed last passes at
// once. All else is in a function of its own, or its needs would burden the short way.
//
// The accesses are the compiler's, because <atomic> is half the work of compiling a source.
template <GType (*get_type)()>
[[gnu::visibility("hidden")]] constinit GType passed_last = 0;

template <GType (*get_type)()>
[[gnu::cold, gnu::noinline]] bool is_a_slowly(gpointer instance) {
  auto *klass = instance ? as<GTypeInstance>(instance)->g_class : nullptr;
  if (!klass || !g_type_is_a(klass->g_type, get_type()))
    return false;
  __atomic_store_n(&passed_last<get_type>, klass->g_type, __ATOMIC_RELAXED);
  return true;
}

template <GType (*get_type)()>
bool is_a(gpointer instance) {
  if (auto *klass = instance ? as<GTypeInstance>(instance)->g_class : nullptr) [[likely]]
    if (klass->g_type == __atomic_load_n(&passed_last<get_type>, __ATOMIC_RELAXED)) [[likely]]
      return true;
  return is_a_slowly<get_type>(instance);
}

// Makes a header's type test quicker: for a pointer of its type, C++ prefers this overload. Each
// type whose functions check their instance has one, in its source or, if others check it too, in
// its private header. VEK_QUICK_TYPE_TEST(METRIC_TIMER, VekMetricTimer, vek_metric_timer)
#define VEK_QUICK_TYPE_TEST(NAME, Type, type)      \
  inline bool VEK_IS_##NAME(Type *instance) {      \
    return vekin::is_a<type##_get_type>(instance); \
  }

// A cast that warns of an unrelated type in every build and returns the pointer all the same;
// GObject's cast macros check nothing in optimised builds from GLib 2.75 on.
template <typename T>
T *warned_cast(gpointer instance, GType type) {
  if (as<GTypeInstance>(instance)->g_class->g_type != type) [[unlikely]]
    g_type_check_instance_cast(as<GTypeInstance>(instance), type);
  return as<T>(instance);
}

}  // namespace vekin

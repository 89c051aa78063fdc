#include "walk.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

struct _Walk {
  char **paths;    /* those not yet begun */
  GArray *folders; /* of Folder, from the outermost to the one being read */
  char *path;
  int error_number;
};

typedef struct {
  char *path;
  DIR *entries;
} Folder;

static void clear_folder(gpointer data) {
  Folder *folder = data;
  g_free(folder->path);
  closedir(folder->entries);
}

static WalkStep fail(Walk *walk) {
  walk->error_number = errno;
  return WALK_FAILED;
}

static void set_path(Walk *walk, char *path) {
  g_free(walk->path);
  walk->path = path;
}

static WalkStep enter_folder(Walk *walk) {
  Folder folder = {.entries = opendir(walk->path)};
  if (!folder.entries)
    return fail(walk);
  folder.path = g_strdup(walk->path);
  g_array_append_val(walk->folders, folder);
  return WALK_FOLDER;
}

/* Looks at the present path; its name is relative to the folder. */
static WalkStep visit(Walk *walk, int folder, const char *name, int flags) {
  struct stat info;
  if (fstatat(folder, name, &info, flags) != 0)
    return fail(walk);
  if (S_ISREG(info.st_mode))
    return WALK_FILE;
  if (S_ISDIR(info.st_mode))
    return enter_folder(walk);
  return WALK_SKIPPED;
}

static gboolean is_self_or_parent(const char *name) {
  return g_str_equal(name, ".") || g_str_equal(name, "..");
}

static const char *read_name(DIR *entries) {
  struct dirent *entry;
  errno = 0; /* which alone tells an error from the end */
  do
    entry = readdir(entries);
  while (entry && is_self_or_parent(entry->d_name));
  return entry ? entry->d_name : NULL;
}

Walk *walk_new(char **paths) {
  Walk *walk = g_new0(Walk, 1);
  walk->paths = paths;
  walk->folders = g_array_new(FALSE, FALSE, sizeof(Folder));
  g_array_set_clear_func(walk->folders, clear_folder);
  return walk;
}

void walk_free(Walk *walk) {
  g_array_unref(walk->folders);
  g_free(walk->path);
  g_free(walk);
}

WalkStep walk_next(Walk *walk) {
  while (walk->folders->len > 0) {
    guint last = walk->folders->len - 1;
    Folder *folder = &g_array_index(walk->folders, Folder, last);
    const char *name = read_name(folder->entries);
    if (name) {
      set_path(walk, g_build_filename(folder->path, name, NULL));
      return visit(walk, dirfd(folder->entries), name, AT_SYMLINK_NOFOLLOW);
    }

    int error_number = errno;
    set_path(walk, g_strdup(folder->path));
    g_array_set_size(walk->folders, last);
    if (error_number != 0) {
      walk->error_number = error_number;
      return WALK_FAILED;
    }
  }

  if (!*walk->paths)
    return WALK_END;
  set_path(walk, g_strdup(*walk->paths++));
  return visit(walk, AT_FDCWD, walk->path, 0);
}

const char *walk_get_path(Walk *walk) {
  return walk->path;
}

int walk_get_error_number(Walk *walk) {
  return walk->error_number;
}

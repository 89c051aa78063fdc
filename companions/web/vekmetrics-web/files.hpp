#pragma once

// The files of the page, which are compiled in.

#include "page.hpp"

namespace vekin::web {

struct Files;

Files *files_new();
void files_free(Files *files);

// The file at a path, or NULL.
Page *files_find(Files *files, const char *path);

}  // namespace vekin::web

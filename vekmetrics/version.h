#pragma once

/**
 * VEK_MAJOR_VERSION:
 *
 * The major version of the headers.
 */
#define VEK_MAJOR_VERSION (0)

/**
 * VEK_MINOR_VERSION:
 *
 * The minor version of the headers.
 */
#define VEK_MINOR_VERSION (1)

/**
 * VEK_MICRO_VERSION:
 *
 * The micro version of the headers.
 */
#define VEK_MICRO_VERSION (0)

/**
 * VEK_CHECK_VERSION:
 * @major: a major version
 * @minor: a minor version
 * @micro: a micro version
 *
 * Checks whether the headers have at least the given version.
 */
#define VEK_CHECK_VERSION(major, minor, micro)                                                     \
  (VEK_MAJOR_VERSION > (major) || (VEK_MAJOR_VERSION == (major) && VEK_MINOR_VERSION > (minor)) || \
   (VEK_MAJOR_VERSION == (major) && VEK_MINOR_VERSION == (minor) && VEK_MICRO_VERSION >= (micro)))

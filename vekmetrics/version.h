#pragma once

/**
 * VEK_MAJOR_VERSION:
 *
 * The major number of the version that is compiled against.
 */
#define VEK_MAJOR_VERSION (0)

/**
 * VEK_MINOR_VERSION:
 *
 * The minor number of the version that is compiled against.
 */
#define VEK_MINOR_VERSION (1)

/**
 * VEK_MICRO_VERSION:
 *
 * The micro number of the version that is compiled against.
 */
#define VEK_MICRO_VERSION (0)

/**
 * VEK_CHECK_VERSION:
 * @major: a major number
 * @minor: a minor number
 * @micro: a micro number
 *
 * Tells whether the version that is compiled against is at least the one given.
 */
#define VEK_CHECK_VERSION(major, minor, micro)                                                     \
  (VEK_MAJOR_VERSION > (major) || (VEK_MAJOR_VERSION == (major) && VEK_MINOR_VERSION > (minor)) || \
   (VEK_MAJOR_VERSION == (major) && VEK_MINOR_VERSION == (minor) && VEK_MICRO_VERSION >= (micro)))

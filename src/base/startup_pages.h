#pragma once

/* Releases the pages of code and constants that only the start needed: relocations and
 * constructors of some forty libraries, most of whose code never runs. Pages that are
 * needed again are mapped from the page cache. Not for objects with text
 * relocations, which neither 64-bit Arm nor Debian has. Any thread may call. */
void release_startup_pages();

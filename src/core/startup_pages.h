#pragma once

/* Gives back the pages of code and constants that only the start has touched: the
 * relocations and constructors of some forty libraries, most of whose code is never
 * run. What is needed again comes back from the page cache. Not for objects with text
 * relocations, which neither 64-bit Arm nor Debian has. Any thread may call. */
void release_startup_pages();

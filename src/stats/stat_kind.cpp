#include "stats/stat_kind.h"

#include <iterator>

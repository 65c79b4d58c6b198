// The collapser is a template over the item type; this unit checks that its header stands alone.
#include "tidewatch_kit/worker_pool_collapser.h"

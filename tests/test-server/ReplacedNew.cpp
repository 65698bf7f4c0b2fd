#include "support/ReplacedNew.h"

#include "cli.h"

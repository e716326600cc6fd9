#pragma once
#include "../../plain_tasks.h"

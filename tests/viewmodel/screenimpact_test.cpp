#include "viewmodel/viewmodelfixture.h"

#include "Database.h"

bool DBFileCheck(MODE* /*pMode*/)
{
	return true;
}

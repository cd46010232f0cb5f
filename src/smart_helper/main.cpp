#include "smart_helper/smart_helper.h"

int main()
{
    return smart_helper_serve();
}

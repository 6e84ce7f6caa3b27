#include <kevra/kevra.h>

int main()
{
    kevra::CDib image(4, 3, 8);
    image.GetBits()[0] = 200;
    kevra::CDib copy(image);
    return copy.IsOK() && copy.GetBits()[0] == 200 && copy.Pitch() == 4 ? 0 : 1;
}

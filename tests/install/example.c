/*
 * The smallest program using the installed library: make a 24-bit bitmap,
 * set one pixel, brighten the whole bitmap by a fifth of full scale and read
 * the pixel back. Built by the install test against an installed copy.
 */
#include <rzkrn.h>
#include <rzdis.h>
#include <rzimg.h>

#include <stdio.h>

int main(void) {
    BitmapDesc bmp;
    uint64_t value = 0;

    if (KrnInitBitmap(&bmp, BITMAPDESC_SIZE, 64, 48, 24) != KRN_OK || KrnAllocBitmap(&bmp) != KRN_OK)
        return 1;
    /* Packed colour: red in bits 0-7, green 8-15, blue 16-23. */
    KrnSetPixel(&bmp, 10, 20, 10u | 100u << 8 | 240u << 16);

    /* +200 per mille of 255 is +51 on every sample, clamped at 255. */
    int32_t status = Rz_ChangeBitmapIntensity(&bmp, 200);
    KrnGetPixel(&bmp, 10, 20, &value);
    KrnFreeBitmap(&bmp);

    printf("status %d, pixel 0x%06llx\n", (int)status, (unsigned long long)value);
    return status == ST_SUCCESS && value == (61u | 151u << 8 | 255u << 16) ? 0 : 1;
}

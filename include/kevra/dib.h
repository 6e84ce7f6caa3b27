// Image objects: CDibRoot (the handle every caller holds), CDib (the same with
// a virtual destructor) and CRectInterieur.
//
// Common rules:
// - An image is empty (no pixel store), holds a store without pixels (a
//   creation or load failed) or holds pixels (IsOK() true). Accessors of an
//   empty image return 0, null or an empty rectangle.
// - Bit counts 1, 4, 8, 16 and 24. 8 and 16 bits are grey (256-entry grey
//   palette; a 16-bit image shows the high byte of each sample through it),
//   24 bits are blue, green, red bytes.
// - Rows are padded to 4 bytes (ScanBytes) and stored as in a BMP file: memory
//   row 0 is the bottom row of the picture. GetPixelPtr and YOffset count rows
//   in that memory order.
// - The working zone (SetZoneTravail / BoundingRectangle) is inclusive and in
//   picture coordinates, y downwards.
//
// Ownership: a CDibRoot owns one pixel store. Assignment (and the plain copy
// constructor) is shallow on purpose: both handles then refer to the SAME
// store, and changes through one are seen through the other; real copies go
// through Copy or the copying constructors. The store keeps a count of the
// handles that refer to it, and is deleted when the last one lets go, so two
// handles never free it twice. Operations that replace the store (Create,
// Destroy, pasting, assignment) detach only this handle.
#ifndef KEVRA_DIB_H
#define KEVRA_DIB_H

#include "kevra/palette.h"
#include "kevra/types.h"

namespace kevra {

class CxImage;
class CLUT_24_Bpp;

class CDibRoot {
public:
    CDibRoot();
    CDibRoot(CSize size, unsigned short bitCount);
    // Loads a file; see Load for the format code. A failed load leaves a store
    // without pixels (IsOK false, GetLastError tells why).
    CDibRoot(wchar_t const * fileName, unsigned long imageType);
    // From a packed bitmap (header, palette, rows) in memory. Note: an 8-bit
    // bitmap whose biClrUsed is 0 gets 256 written into its biClrUsed and
    // biClrImportant fields. The block carries no length: the caller vouches
    // that it holds the 40-byte header and everything the header announces
    // (palette of the created store's size when biClrUsed is not 0, else
    // biSize bytes of header; then the rows at the store's pitch; with a
    // compression, 12 bytes of masks and, at 32 bits, width x 4 x height bytes).
    explicit CDibRoot(void * handle);
    // Copying constructors: source, then whether to copy pixels, selection
    // mask and alpha plane. The pointer form requires a non-null source.
    CDibRoot(CDibRoot & src, bool bCopyPixels, bool bCopySelection, bool bCopyAlpha);
    CDibRoot(CDibRoot * src, bool bCopyPixels, bool bCopySelection, bool bCopyAlpha);
    // Shallow: shares the store (see Ownership above).
    CDibRoot(const CDibRoot & other);
    ~CDibRoot();

    CDibRoot & operator=(CDibRoot const & other);

    // ---- life -------------------------------------------------------------
    // Replaces the image by a new one of that size; bit count rounded up to
    // 1, 4, 8, 16 or 24. Pixel bytes start at 0. Working zone = whole image.
    bool Create(CSize size, unsigned short bitCount);
    void Destroy();
    // Fails when this image is empty. The source must have a store.
    bool Copy(CDibRoot & src, bool bCopyPixels, bool bCopySelection, bool bCopyAlpha);
    void SwapImage(CDibRoot & other);

    // ---- geometry and access ------------------------------------------------
    unsigned short BitCount() const;
    long Width() const;
    long Height() const;
    CSize Size() const;
    // (0, 0, Width(), Height()): right and bottom exclusive here.
    CRect Rect() const;
    // ((width * bitcount + 31) & ~31) / 8 in 32-bit signed arithmetic.
    int ScanBytes(long width, int bitCount) const;
    int Pitch() const;
    int XOffset(int x) const;
    int YOffset(int y) const;
    unsigned long SizeImage() const;
    // The store's header record; the palette does not follow it.
    tagBITMAPINFO * GetInfo();
    unsigned char * GetBits();
    // Discard a 16-bit image's grey view (call after changing pixels).
    void ReleaseBits();
    void ReleasePixelPtr();
    // No bounds check; y is a memory row (row 0 = bottom of the picture).
    unsigned char * GetPixelPtr(int x, int y);
    // Also discards a 16-bit image's grey view.
    bool IsOK();
    bool IsGrayScale() const;
    void SetGrayPalette();
    unsigned long GetXPelsPerMeter() const;
    unsigned long GetYPelsPerMeter() const;
    void SetXPelsPerMeter(unsigned long value);
    void SetYPelsPerMeter(unsigned long value);
    // The codec's text for the last load or save failure; not cleared by a success.
    char * GetLastError();
    void SetZoneTravail(CRect rect);
    CRect BoundingRectangle() const;
    bool PointInSelection(CPoint & point) const;

    // ---- files and packed bitmaps ------------------------------------------
    // 0 when the upper-cased name contains ".BMP", else 99.
    static unsigned long AutoDetectImageFormat(wchar_t const * fileName);
    // Format code: 0 BMP; above 7 recognised from the name; 19 and above
    // (99 after recognition) fails at once. A failed load keeps the previous
    // image. When a device root is chosen (platform.h), each call appends
    // BEGIN/END lines to its trace.txt.
    bool Load(wchar_t const * fileName, unsigned long imageType);
    bool Save(wchar_t const * fileName, unsigned long imageType);
    // A zero-initialised copy of the packed bitmap (header, palette, rows);
    // null when empty. The caller owns it and releases it with FreeHandle.
    void * CopyToHandle();
    static void FreeHandle(void * handle);

    // ---- bit-depth conversion -------------------------------------------------
    // This image is the destination, created beforehand at the wanted size and
    // depth; 8 and 16 bits only ("TO DO" message box otherwise).
    bool CopyToDifferentBpp(CDibRoot & source);

    // ---- display palette and clipboard ---------------------------------------
    // All three forms return 0 whatever happens.
    long SetDisplayPalette(e_Palette palette);
    long SetDisplayPalette(CLUT_24_Bpp lut);
    long SetDisplayPalette(CLUT_24_Bpp * pLUT_Affichage, float luminosite, float contraste,
                           float gamma, e_Palette palette, int rouge, int vert, int bleu,
                           bool negatif);
    long GetCurrentDisplayPalette(tagRGBQUAD * buffer, unsigned int capacity);
    long GetCurrentDisplayPalette(CLUT_24_Bpp * lut);
    bool CopyToClipboard();
    static bool PasteAvailable();
    bool PasteFromClipboard();

    // ---- resampling and rectangle fitting -------------------------------------
    // The image has the new size afterwards even on failure; resolution back
    // to 2835 pels per metre, working zone (0, 0, 0, 0). The mode is unused.
    bool Resample(unsigned int newWidth, unsigned int newHeight, unsigned int mode);
    bool Resample(long newWidth, long newHeight, int unused);
    void RectHomothetique(int aspectWidth, int aspectHeight, CRect * rect);
    void RectHomothetique(CRect * rect);

protected:
    CxImage * Donne_pCxImage();

private:
    void attach(CxImage * store);
    void detach();

    CxImage * m_pCxImage = nullptr;
};

class CDib : public CDibRoot {
public:
    CDib();
    // Deep copies: pixels, selection and alpha.
    CDib(CDib & src);
    CDib(CDib * src);
    // Format recognised from the name (code 99).
    explicit CDib(wchar_t const * fileName);
    CDib(CSize size, unsigned short bitCount);
    CDib(int width, int height, int bitCount);
    explicit CDib(void * handle);
    virtual ~CDib();

    // Shallow, like CDibRoot's.
    CDib & operator=(CDib const & other);
};

// A rectangle of a given aspect placed inside an outer rectangle.
class CRectInterieur : public CRect {
public:
    // Placement flags; without a horizontal (vertical) flag the inner rectangle
    // is centred horizontally (vertically). 2 counts only without 1, 32 only
    // without 16.
    enum e_Place {
        e_PlaceLeft = 1,
        e_PlaceRight = 2,
        e_PlaceTop = 16,
        e_PlaceBottom = 32,
    };

    CRectInterieur() = default;
    CRectInterieur(CRect & outer, int aspectWidth, int aspectHeight, e_Place place);
    CRectInterieur(CRect & outer, CSize aspect, e_Place place);

    CRectInterieur & operator=(const CRect & rect);

    void Init(CRect & outer, int aspectWidth, int aspectHeight, e_Place place);
};

} // namespace kevra

#endif

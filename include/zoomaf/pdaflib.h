/* Defocus library: turns one PDAF window's phase difference (PD) and confidence level (CL)
   into a signed defocus in 1/16384 of a focus-motor step, a CL normalised so that 1024 is
   exactly the OK/NG threshold, and an OK/NG flag.

   The library is pure arithmetic: it keeps no state, allocates nothing, prints nothing and
   reads no globals, so it is reentrant; the caller owns the records and serialises the use
   of its own input record. The records below are part of the ABI of libzoomaf.so: fields,
   order and types are fixed, with natural alignment (LP64). This header compiles as C. */
#ifndef ZOOMAF_PDAFLIB_H
#define ZOOMAF_PDAFLIB_H

#include <stdint.h>

#include "zoomaf/export.h"

ZOOMAF_EXTERN_C_BEGIN

/* ---- Records (the ABI of the library) -------------------------------------------------------- */

typedef struct PdLibVersion {
    uint64_t Major; /* always 1 */
    uint64_t Minor; /* always 0 */
} PdLibVersion;

/* One OK/NG threshold line: the threshold CL as a broken line over the sensor gain. */
typedef struct PdLibOKNGThrLine {
    uint64_t PointNum;   /* number of points (the system uses 2) */
    const uint64_t* p_X; /* PointNum gain abscissae, non-decreasing */
    const uint64_t* p_Y; /* PointNum threshold CLs */
} PdLibOKNGThrLine;

typedef struct PdLibInputData {
    int64_t PhaseDifference;  /* the window's PD; -1024: the sensor found none */
    uint64_t ConfidenceLevel; /* the window's CL, 0 .. 2047 */
    uint16_t ImageXSize;      /* image in which windows and knots are given (4000 x 3000) */
    uint16_t ImageYSize;
    uint16_t WindowXStart; /* the window's corners in image pixels */
    uint16_t WindowYStart;
    uint16_t WindowXEnd;
    uint16_t WindowYEnd;
    uint16_t DefocusXKnotNum; /* conversion grid: knots in X and Y (8 x 6) */
    uint16_t DefocusYKnotNum;
    const int64_t* p_DefocusDcc;    /* X x Y conversion coefficients, row by row */
    const int64_t* p_DefocusOffset; /* X x Y defocus offsets, row by row */
    const uint16_t* p_DefocusXKnot; /* X addresses of the grid's columns, strictly ascending */
    const uint16_t* p_DefocusYKnot; /* Y addresses of the grid's rows, strictly ascending */
    int64_t DccScale;               /* must be 2304 */
    uint64_t SensorGain;            /* analog gain factor: abscissa of the threshold lines */
    uint16_t ThrXKnotNum;           /* threshold grid: knots in X and Y; both 0: no grid */
    uint16_t ThrYKnotNum;
    const PdLibOKNGThrLine* p_DefocusOKNGThrLine; /* one line per threshold knot, row by row;
                                                     record 0 is read even without a grid */
    const uint16_t* p_ThrXKnot;                   /* strictly ascending */
    const uint16_t* p_ThrYKnot;                   /* strictly ascending */
    uint64_t ConfidenceNormaliser; /* 2304, 1152 or 576: CL is scaled by 2304 / this */
} PdLibInputData;

typedef struct PdLibOutputData {
    int64_t Defocus;                 /* 1/16384 focus-motor step */
    int8_t DefocusConfidence;        /* 0 OK, -80 NG, -2 no threshold grid, -3 PD was -1024,
                                        -1 not computed (input rejected) */
    uint64_t DefocusConfidenceLevel; /* CL normalised: 1024 is exactly the threshold */
    int64_t PhaseDifference;         /* copy of the input PD */
} PdLibOutputData;

/* ---- Defocus computation (pdaflib/PdafLibrary.cpp) ----------------------------------------- */

/* Writes the library version, 1.0. */
ZOOMAF_API void PdLibGetVersion(PdLibVersion* version);

/* Computes the defocus and the confidence verdict of one window. Returns 0, or -40 .. -53
   for a rejected input, in which case the output holds Defocus 0, DefocusConfidence -1,
   DefocusConfidenceLevel 0 and PhaseDifference 0. */
ZOOMAF_API int64_t PdLibGetDefocus(const PdLibInputData* input, PdLibOutputData* output);

/* ---- Interpolation on lines and planes (pdaflib/PdafMathFunc.cpp) --------------------------- */

/* Straight line through (X[0], Y[0]) and (X[1], Y[1]) evaluated at x, clamped to the end
   points' ordinates outside the segment, truncated toward zero. Always writes out. */
ZOOMAF_API void CalcAddressOnLine_slXslY(const int64_t X[2], const int64_t Y[2], int64_t x,
                                         int64_t* out);

/* Broken line through the n points (X[i], Y[i]) evaluated at x. Returns 0, or -1 (out
   untouched) for n below 2, an abscissa or ordinate above 0x7FFFFFFF, or descending X. */
ZOOMAF_API int32_t CalcAddressOnBrokenLine_ulXulY(const uint64_t* X, const uint64_t* Y, uint64_t n,
                                                  uint64_t x, uint64_t* out);

/* Bilinear interpolation over the rectangle X[0]..X[1] by Y[0]..Y[1] with corner values Z in
   the order (X0,Y0), (X1,Y0), (X0,Y1), (X1,Y1). Returns 0, or -1 (out untouched) for a point
   outside the rectangle or an empty rectangle. */
ZOOMAF_API int32_t CalcAddressOnPlane_slXslYslZ(const int64_t X[2], const int64_t Y[2],
                                                const int64_t Z[4], int64_t x, int64_t y,
                                                int64_t* out);

ZOOMAF_EXTERN_C_END

#endif

#pragma once

#include "platform/data/VxData.h"
#include "platform/data/VxLattice3.h"

#include <Inventor/SbMatrix.h>

#include <memory>

/// A 3D field of the host. World coordinates are the lattice's local
/// coordinates times the transformation (Open Inventor's row-vector
/// convention: world = local * M), when the field has one. Lengths are in
/// the unit given by the parameter "UnitLength" (metres per unit; 0.001 =
/// mm when absent).
class VxField3 : public VxData
{
public:
    ~VxField3() override;

    /// The regular lattice of the field, or null for other kinds.
    virtual VxLattice3 *lattice() { return nullptr; }
    virtual const VxLattice3 *lattice() const { return nullptr; }
    /// xmin, xmax, ymin, ymax, zmin, zmax of the local coordinates.
    virtual void getBoundingBox(float bbox[6]) const;

    bool hasTransform() const { return transformSet; }
    const SbMatrix &transform() const { return matrix; }
    void setTransform(const SbMatrix &m);
    void clearTransform();
    /// World position of voxel (i, j, k): local coordinates times the transform.
    void voxelToWorld(int i, int j, int k, float out[3]) const;
    /// Data range over all samples (components included), computed each call.
    /// False for an empty field.
    bool getRange(double &min, double &max) const;

    /// Metres per length unit ("UnitLength", 0.001 when absent).
    double unitLength() const;

protected:
    VxField3() = default;

private:
    bool transformSet = false;
    SbMatrix matrix = SbMatrix::identity();
};

/// A field on a regular lattice; base of the scalar and colour fields.
class VxRegScalarField3 : public VxField3
{
public:
    VxLattice3 *lattice() override { return lat.get(); }
    const VxLattice3 *lattice() const override { return lat.get(); }
    void getBoundingBox(float bbox[6]) const override { lat->getBoundingBox(bbox); }
    KcPrimType primType() const { return lat->primType(); }
    VxCoordType coordType() const { return lat->coordType(); }
    const char *typeName() const override { return "VxRegScalarField3"; }

protected:
    VxRegScalarField3(const int dims[3], KcPrimType type, int components, void *data,
                      VxCoordType coordType);

private:
    std::unique_ptr<VxLattice3> lat;
};

/// Uniform scalar field: samples on a regular grid spanning a bounding box.
class VxUniformScalarField3 : public VxRegScalarField3
{
public:
    /// Takes over data (malloc'd; null allocates zeros).
    VxUniformScalarField3(const int dims[3], KcPrimType type, void *data);
    void setBoundingBox(const float bbox[6]) { lattice()->setBoundingBox(bbox); }
    const char *typeName() const override { return "VxUniformScalarField3"; }
};

/// Stacked scalar field: uniform in x and y, one z coordinate per slice.
class VxStackedScalarField3 : public VxRegScalarField3
{
public:
    VxStackedScalarField3(const int dims[3], KcPrimType type, void *data);
    const char *typeName() const override { return "VxStackedScalarField3"; }
};

/// Colour field (3 or 4 unsigned 8-bit components per voxel), uniform
/// (coordinate type 1) or stacked (2).
class VxRegColorField3 : public VxRegScalarField3
{
public:
    VxRegColorField3(const int dims[3], VxCoordType coordType, int components, void *data,
                     KcPrimType type = KcPrimType::UInt8);
    const char *typeName() const override { return "VxRegColorField3"; }
};

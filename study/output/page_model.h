/// The geometry and the values of a result in the form that a page carries: whole numbers, as small
/// as they come. viewer/src/packing.ts reads it.
///
/// Places are counted in steps from the lowest corner of all, a hundred-thousandth of the longest
/// edge's power of ten (1 mm from 100 m to 1 km). Cells that form a grid on a plane face are one
/// panel: a corner, two edges and the number of columns and rows; other cells are polygons, corner
/// by corner. Values are whole multiples of a power of ten, so that the page shows digits and
/// nothing that was rounded twice, and are written as differences to their neighbours.
#pragma once

#include "study/model/scene.h"
#include "study/results/result_column.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

namespace insolate::study {

/// A run of cells in the order of the sensors.
struct CellBlock {
    enum class Kind : std::uint8_t {
        polygons, ///< each with corners of its own
        grid,     ///< a parallelogram of columns x rows cells, row by row
        points    ///< sensors without cells
    };
    Kind kind = Kind::polygons;
    std::size_t first = 0; ///< sensor
    std::size_t count = 0;
    std::uint32_t columns = 0;         ///< of a grid
    std::uint32_t rows = 0;            ///< of a grid
    Vector3 origin;                    ///< of a grid: the first corner of the first cell
    Vector3 along;                     ///< of a grid: the edge of one row, all its columns
    Vector3 across;                    ///< of a grid: the edge of one column, all its rows
    std::vector<std::uint8_t> present; ///< of a grid with gaps: its places, 1 where a cell is
};

/// Finds the grids. A grid is two or more cells of one face, object and material that lie on the
/// lattice of the first within the tolerance; a grid on a level plane may have gaps where
/// buildings stand.
std::vector<CellBlock> cellBlocks(const SensorField& field, double tolerance);

struct PackedModel {
    Vector3 origin;          ///< lowest corner of scene and cells [m]
    double step = 1.0;       ///< [m]
    std::string blocks;      ///< the cells
    std::string faces;       ///< runs of cells of one name: count, object, material
    std::string vertices;    ///< of the scene
    std::string triangles;   ///< of the scene
    std::string edges;       ///< of the scene, where it folds or ends
    std::string objects;     ///< runs of triangles that belong to an object of the sensors
    std::string edgeObjects; ///< the same of the edges
    std::size_t sensors = 0;
    std::size_t sceneVertices = 0;
    std::size_t sceneTriangles = 0;
    std::size_t sceneEdges = 0;
    std::vector<std::string> names; ///< that faces and objects point into
    std::vector<CellBlock> cells;   ///< what `blocks` holds
};
PackedModel packModel(const Scene& scene, const SensorField& field,
                      const std::stop_token& stop = {});

/// A column as whole multiples of a step.
struct PackedColumn {
    static constexpr std::uint32_t greatest = 65000;   ///< level of two bytes
    static constexpr std::uint32_t greatestByte = 250; ///< level of one byte
    double step = 1.0;                                 ///< value of a level, in the shown unit
    double lowest = 0.0;                               ///< value of level 0, a multiple of the step
    int decimals = 0;                                  ///< that the values have
    std::string bytes; ///< the low bytes of all cells, then the high ones
};
/// @param digits that the greatest value keeps, 1..5, where two bytes hold them
PackedColumn packColumn(std::span<const float> values, double factor, int digits,
                        std::span<const CellBlock> blocks);
/// In one byte each: at least 100 levels between the ends, which are common to several columns.
PackedColumn packBytes(std::span<const float> values, double factor, double lowest, double highest,
                       std::span<const CellBlock> blocks);

} // namespace insolate::study

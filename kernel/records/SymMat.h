// A small symmetric matrix.
#pragma once

#include <array>
#include <cstddef>
#include <utility>

namespace kernel {

// N rows and columns; each element below or on the diagonal is stored once, row after row: (0,0) (1,0) (1,1) (2,0) ...
// Used for covariances, normal equations and weights.
//
// Threads:   a value.
// Ownership: holds nothing, allocates nothing.
// Errors:    none; an index outside 0 .. N - 1 is not checked and undefined.
template <std::size_t N>
class SymMat {
public:
    static constexpr std::size_t Packed_Size = N * (N + 1) / 2;

    constexpr double &operator()(std::size_t row, std::size_t column) { return packed_[Place(row, column)]; }
    constexpr double operator()(std::size_t row, std::size_t column) const { return packed_[Place(row, column)]; }

    constexpr double *Packed() { return packed_.data(); }
    constexpr const double *Packed() const { return packed_.data(); }

    // a' M a. For a covariance: the variance of the sum of a[i] times quantity i.
    constexpr double Quadratic_Form(const double (&a)[N]) const
    {
        double sum = 0;
        for (std::size_t row = 0; row < N; ++row) {
            for (std::size_t column = 0; column < row; ++column) sum += 2 * a[row] * a[column] * (*this)(row, column);
            sum += a[row] * a[row] * (*this)(row, row);
        }
        return sum;
    }
    // Adds weight * a a', the contribution of one observation to the normal equations.
    constexpr void Add_Outer_Product(const double (&a)[N], double weight)
    {
        for (std::size_t row = 0; row < N; ++row) {
            for (std::size_t column = 0; column <= row; ++column) (*this)(row, column) += weight * a[row] * a[column];
        }
    }

    friend constexpr bool operator==(const SymMat &, const SymMat &) = default;

private:
    static constexpr std::size_t Place(std::size_t row, std::size_t column)
    {
        if (row < column) std::swap(row, column);
        return row * (row + 1) / 2 + column;
    }

    std::array<double, Packed_Size> packed_{};  // [the owner's units]
};

}  // namespace kernel

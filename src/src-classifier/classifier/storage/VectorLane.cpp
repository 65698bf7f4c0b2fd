#include "classifier/storage/VectorLane.inl"

namespace halvern::classifier::storage {

// The lanes of 16 bytes and more are made in VectorLaneLong, so that two compilers share the work.
template class VectorLane<0>;
template class VectorLane<1>;
template class VectorLane<2>;
template class VectorLane<3>;
template class VectorLane<4>;
template class VectorLane<5>;
template class VectorLane<6>;
template class VectorLane<7>;
template class VectorLane<8>;
template class VectorLane<9>;
template class VectorLane<10>;
template class VectorLane<11>;
template class VectorLane<12>;
template class VectorLane<13>;
template class VectorLane<14>;
template class VectorLane<15>;

}  // namespace halvern::classifier::storage

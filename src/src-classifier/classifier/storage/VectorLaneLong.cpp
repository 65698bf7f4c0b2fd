#include "classifier/storage/VectorLane.inl"

namespace halvern::classifier::storage {

template class VectorLane<16>;
template class VectorLane<17>;
template class VectorLane<18>;
template class VectorLane<19>;
template class VectorLane<20>;
template class VectorLane<21>;
template class VectorLane<22>;
template class VectorLane<23>;
template class VectorLane<24>;
template class VectorLane<25>;
template class VectorLane<26>;
template class VectorLane<27>;
template class VectorLane<28>;
template class VectorLane<29>;
template class VectorLane<30>;
template class VectorLane<31>;

}  // namespace halvern::classifier::storage

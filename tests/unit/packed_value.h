// Fields of packed platform records are read by value: binding one to a
// reference (as the assertion macros do) is undefined when it is misaligned.
#ifndef QOR_TESTS_UNIT_PACKED_VALUE_H_
#define QOR_TESTS_UNIT_PACKED_VALUE_H_

template <typename T>
T Val(T Value) {
  return Value;
}

#endif  // QOR_TESTS_UNIT_PACKED_VALUE_H_

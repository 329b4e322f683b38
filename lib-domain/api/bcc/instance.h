// The process-wide object of blind-copy rules, for work below another root.
#ifndef LIB_DOMAIN_API_BCC_INSTANCE_H
#define LIB_DOMAIN_API_BCC_INSTANCE_H

class BCC;

namespace MDOMAIN::API::INTERNAL {

// While one lives, the process-wide object is another one, below the root in force then.
class OtherBccInstance {
 public:
  OtherBccInstance();
  ~OtherBccInstance();
  OtherBccInstance(const OtherBccInstance&) = delete;
  OtherBccInstance& operator=(const OtherBccInstance&) = delete;

 private:
  BCC* kept_;
};

// Forgets the object, so that the next call makes one below the root of then. For tests only.
void ResetBccInstanceForTest();

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_BCC_INSTANCE_H

#include "ck/CkJsonArray.h"

#include <gtest/gtest.h>

namespace {

CkJsonObject Certificate(const char* id) {
    CkJsonObject object;
    object.AppendString("CKA_ID", id);
    return object;
}

std::string IdAt(const CkJsonArray& array, int index) {
    const std::unique_ptr<CkJsonObject> object = array.ObjectAt(index);
    return object ? object->stringOf("CKA_ID") : "none";
}

TEST(CkJsonArray, AddObjectCopyAt_InsertsBeforeThePositionOrBehindTheLast) {
    CkJsonArray array;
    EXPECT_TRUE(array.AddObjectCopyAt(-1, Certificate("b")));
    EXPECT_TRUE(array.AddObjectCopyAt(-1, Certificate("c")));
    EXPECT_TRUE(array.AddObjectCopyAt(0, Certificate("a")));
    EXPECT_TRUE(array.AddObjectCopyAt(3, Certificate("d")));
    EXPECT_EQ(IdAt(array, 0) + IdAt(array, 1) + IdAt(array, 2) + IdAt(array, 3), "abcd");
}

TEST(CkJsonArray, AddObjectCopyAt_RefusesAPositionOutside) {
    CkJsonArray array;
    EXPECT_FALSE(array.AddObjectCopyAt(1, Certificate("a")));
    EXPECT_FALSE(array.AddObjectCopyAt(-2, Certificate("a")));
    EXPECT_EQ(array.ObjectAt(0), nullptr);
}

TEST(CkJsonArray, AddObjectCopyAt_StoresACopy) {
    CkJsonArray array;
    CkJsonObject object = Certificate("a");
    array.AddObjectCopyAt(-1, object);
    object.AppendString("ChainCert", "true");
    EXPECT_EQ(array.ObjectAt(0)->IndexOf("ChainCert"), -1);
}

TEST(CkJsonArray, ObjectAt_GivesACopyOrNull) {
    CkJsonArray array;
    array.AddObjectCopyAt(-1, Certificate("a"));
    array.ObjectAt(0)->AppendInt("x", 1);
    EXPECT_EQ(array.ObjectAt(0)->IndexOf("x"), -1);
    EXPECT_EQ(array.ObjectAt(1), nullptr);
    EXPECT_EQ(array.ObjectAt(-1), nullptr);
}

TEST(CkJsonArray, FindObject_GivesTheFirstWhoseStringMemberIsTheValue) {
    CkJsonArray array;
    array.AddObjectCopyAt(-1, CkJsonObject());
    array.AddObjectCopyAt(-1, Certificate("ab"));
    array.AddObjectCopyAt(-1, Certificate("AB"));
    array.AddObjectCopyAt(-1, Certificate("AB"));
    EXPECT_EQ(array.FindObject("CKA_ID", "AB", true), 2);
    EXPECT_EQ(array.FindObject("CKA_ID", "AB", false), 1);
    EXPECT_EQ(array.FindObject("CKA_ID", "A", true), -1);
    EXPECT_EQ(array.FindObject("CKA_ID", "A", false), -1);
    EXPECT_EQ(array.FindObject("cka_id", "AB", true), -1) << "names are case-sensitive";
    EXPECT_EQ(array.FindObject("CKA_ID", "", true), -1) << "a missing member equals nothing";
}

TEST(CkJsonArray, FindObject_ComparesBytesThatAreNoUtf8) {
    CkJsonArray array;
    array.AddObjectCopyAt(-1, Certificate("\xFF\x01"));
    array.AddObjectCopyAt(-1, Certificate("\xFE\x01"));
    EXPECT_EQ(array.FindObject("CKA_ID", "\xFE\x01", true), 1);
}

TEST(CkJsonArray, FindObject_LooksAtStringsOnly) {
    CkJsonArray array;
    CkJsonObject object;
    object.Load(R"({"a":1,"b":{"c":1},"d":null})");
    array.AddObjectCopyAt(-1, object);
    EXPECT_EQ(array.FindObject("a", "1", true), -1);
    EXPECT_EQ(array.FindObject("b", R"({"c":1})", true), -1);
    EXPECT_EQ(array.FindObject("d", "null", true), -1);
}

TEST(CkJsonArray, Clear_RemovesAll) {
    CkJsonArray array;
    array.AddObjectCopyAt(-1, Certificate("a"));
    array.Clear();
    EXPECT_EQ(array.ObjectAt(0), nullptr);
}

} // namespace

// SPDX-License-Identifier: MIT
// registry_in_file: the registry daemon's operations on a database in a temporary folder, without a daemon.
#pragma once

#include "tv/winreg.h"
#include "tvregd/graveyard.h"
#include "tvregd/loading.h"
#include "tvregd/operations.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>

inline std::string Folder() {
    std::string folder = testing::TempDir() + "registry_in_file." + std::to_string(getpid());
    std::filesystem::create_directories(folder);
    return folder;
}

// A registry in a file of its own, which can be closed and opened again as a restart does.
struct RegistryInFile : testing::Test {
    std::string file = Folder() + "/" + testing::UnitTest::GetInstance()->current_test_info()->name() + ".db";
    StoreGuard store;
    Registry registry{};

    void Open() { OpenAs(Durability::full); }
    void OpenAs(Durability durability) {
        store.reset();
        store = OpenStore(file, durability);
        registry = {MakeTree(), store.get()};
        LoadTree(*store, registry.tree);
    }
    void Restart() {
        EXPECT_EQ(CommitGroup(registry), 0u);
        store.reset();
        Open();
    }
    void SetUp() override { Open(); }
    void TearDown() override {
        store.reset();
        std::filesystem::remove_all(Folder());
    }

    std::uint32_t Make(std::uint32_t handle, std::string_view path, std::uint32_t options = 0) {
        Key *key = nullptr;
        std::uint32_t disposition = 0;
        EXPECT_EQ(CreateKey(registry, handle, path, std::nullopt, options, &key, &disposition), 0u) << path;
        return key != nullptr ? HandleOf(*key) : 0;
    }
    std::uint32_t CodeOfMake(std::uint32_t handle, std::string_view path, std::uint32_t options = 0) {
        Key *key = nullptr;
        std::uint32_t disposition = 0;
        return CreateKey(registry, handle, path, std::nullopt, options, &key, &disposition);
    }
    std::uint32_t Open(std::uint32_t handle, std::string_view path) {
        Key *key = nullptr;
        return OpenKey(registry, handle, path, &key) == 0 ? HandleOf(*key) : 0;
    }
    std::uint32_t CodeOfOpen(std::uint32_t handle, std::string_view path) {
        Key *key = nullptr;
        return OpenKey(registry, handle, path, &key);
    }
    std::vector<std::string> SubKeys(std::uint32_t handle) {
        std::vector<std::string> names;
        const Key *subKey = nullptr;
        while (SubKeyAt(registry, handle, static_cast<std::uint32_t>(names.size()), &subKey) == 0) {
            names.push_back(subKey->name);
        }
        return names;
    }
    std::vector<std::string> Values(std::uint32_t handle) {
        std::vector<std::string> names;
        const Value *value = nullptr;
        while (ValueAt(registry, handle, static_cast<std::uint32_t>(names.size()), &value) == 0) {
            names.push_back(value->name);
        }
        return names;
    }
    const Value *Get(std::uint32_t handle, std::string_view name) {
        const Value *value = nullptr;
        return QueryValue(registry, handle, name, &value) == 0 ? value : nullptr;
    }
    static std::string Content(const std::string &path) {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    // Rows that somebody else sees in the file.
    int RowsOnDisk(const std::string &table) const {
        SQLite::Database reader(file, SQLite::OPEN_READONLY);
        return reader.execAndGet("SELECT count(*) FROM " + table).getInt();
    }
    template <typename Operation>
    bool IsProvisional(Operation operation) {
        registry.isProvisional = false;
        operation();
        return registry.isProvisional;
    }
    // Ten thousand rows below one key, in the database: keys, keys below keys, values.
    void MakeMuch() {
        for (int i = 0; i < 30; ++i) {
            const std::uint32_t key = Make(HKEY_USERS, "much\\k" + std::to_string(i));
            for (int sub = 0; sub < 100; ++sub) {
                EXPECT_EQ(Set(Make(key, "s" + std::to_string(sub)), "v", "x"), 0u);
            }
        }
        const std::uint32_t many = Make(HKEY_USERS, "much\\values");
        for (int i = 0; i < 4000; ++i) {
            EXPECT_EQ(Set(many, "v" + std::to_string(i), "x"), 0u);
        }
        EXPECT_EQ(CommitGroup(registry), 0u);
    }
    // All that can be seen of the registry.
    std::string Picture() { return PictureOf(HKEY_USERS, ""); }
    std::string PictureOf(std::uint32_t handle, const std::string &path) {
        Key *key = nullptr;
        EXPECT_EQ(OpenKey(registry, handle, "", &key), 0u);
        std::string picture = path + " " + std::to_string(handle) + " " + std::to_string(key->written) + "\n";
        for (const auto &value : key->values.inOrder) {
            EXPECT_EQ(FindValue(*key, value->name), value.get());
            picture += "  " + value->name + ":" + std::to_string(value->type) + "=" + value->data + "\n";
        }
        for (const auto &subKey : key->subKeys.inOrder) {
            EXPECT_EQ(FindSubKey(*key, subKey->name), subKey.get());
            picture += PictureOf(HandleOf(*subKey), path + "\\" + subKey->name);
        }
        return picture;
    }
    std::uint32_t Set(std::uint32_t handle, std::string_view name, std::string_view data, std::uint32_t type = REG_SZ) {
        return SetValue(registry, handle, name, type, data);
    }
};

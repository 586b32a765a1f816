// Network lists from the URL-encoded text of old keys.
#include "netperm_support.h"

#include <gtest/gtest.h>

namespace {

// The elements of the list `T$LIST` as "number=address", joined by blanks; each has its address for a name too.
std::string numbered_elements(FragList db) {
    std::string text;
    Frag *elements = ffind(db, "netobj_list_T$LIST_element");
    EXPECT_NE(elements, nullptr);
    for (Frag *element = elements->child; element; element = element->next) {
        const char *name = fval(&element->child, "name");
        text += (text.empty() ? "" : " ") + std::string(element->name) + "=" + fval(&element->child, "addr");
        EXPECT_STREQ(fval(&element->child, "addr"), name);
    }
    return text;
}

} // namespace

TEST(network_lists, words_of_the_text) {
    // "text|elements"
    const char *rows[] = {"10.0.0.0%0A%23 comment%0A192.168.1.1 host%0A|1=10.0.0.0 2=192.168.1.1 3=host",
                          "|",
                          "a b|1=a",
                          "a b%0A|1=a 2=b",
                          "  a\t\tb\r\n\r\nc\n|1=a 2=b 3=c",
                          "a%20b%09c%0Dd%0A|1=a 2=b 3=c 4=d",
                          "#a b%0Ac |1=c",
                          "%23a b%0Ac |1=c",
                          "%0A#a |1=#a",
                          " #a |1=#a",
                          "a%0A#b c%0Ad%0A|1=a 2=d",
                          "a%0A#b%0A#c%0Ad%0A|1=a 2=d",
                          "a%0D%0A#b%0A|1=a 2=#b",
                          "a%0D#b%0Ac%0A|1=a 2=c",
                          "a #b%0A|1=a 2=#b",
                          "a #b c%0A#d%0A|1=a 2=#b 3=c",
                          "a#b |1=a#b",
                          "#x%0Dy%0Az |1=z",
                          "#x%0A%0A#y%0Az |1=#y 2=z",
                          "a%0ab%0Ac%0A|1=a 2=c",
                          "%00a b |1= 2=b",
                          "%zz |1=zz",
                          "%zz%41%4a |1=zzA@a",
                          "%4 x%0A|1=@ 2=x",
                          "%g%41 |1=gA",
                          "a %|1=a",
                          "a %4|1=a",
                          "a %41|1=a",
                          "10.0.0.0%2F8%3A255 |1=10.0.0.0/8:255",
                          "%FF |1=\xff"};
    for (const char *row : rows) {
        tree db;
        std::vector<std::string> parts = split(row, '|');
        EXPECT_EQ(xurl2netobj(db, "T$LIST", parts[0].data()), 0);
        EXPECT_EQ(numbered_elements(db), parts[1]) << row;
    }
}

TEST(network_lists, list_that_is_there) {
    tree db("netobj_list_T$LIST_x=1\nnetobj_list_T$LIST_element_1_addr=a\nnetobj_list_T$LIST_element_1_name=a\n"
            "netobj_list_T$LIST_element_5_q=keep\nnetobj_list_T$LIST_element_5_addr=b\nnetobj_list=kept\n");
    std::string text = "x y z%0A";
    xurl2netobj(db, "T$LIST", text.data());
    EXPECT_EQ(numbered_elements(db), "1=a 3=x 4=y 5=z");
    EXPECT_STREQ(fval(db, "netobj_list_T$LIST_element_5_q"), "keep");
    EXPECT_STREQ(fval(db, "netobj_list"), "kept");
    text = "n%0A";
    xurl2netobj(db, "New", text.data());
    EXPECT_EQ(fval(db, "netobj_list"), nullptr);
    EXPECT_EQ(text_of(ffind(db, "netobj_list")->child).substr(0, 44), "New_element_1_name=n\nNew_element_1_addr=n\nT$");
}

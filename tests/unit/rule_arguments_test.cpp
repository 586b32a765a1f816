// Words of a rule: host patterns, further hosts, parameters, attributes of policy templates.
#include "netperm_support.h"

#include <gtest/gtest.h>

// Pairs "pattern|subject".
TEST(rule_arguments, wildmatch) {
    const char *matching[] = {"a|a",         "|",          "*|",       "*|a.b",   "10.*|10.1.2.3", "10.*|10.",
                              "*.com|a.com", "*.com|.com", "a*c|abbc", "a*c|ac",  "a*b*c|a1b2b3c", "*a*|bab",
                              "*.1|*.1",     "*|*",        "**|*",     "**|*a",   "a*b|ax*b",      "*|a*",
                              "a**|ab",      "**|a",       "a b|a\tc", "* x|y z", "* x| z",        "a*\tb|a",
                              "a* b|ab b",   " a|\tb"};
    // A star that faces a star is an ordinary byte, and one with something behind it wants a byte of the subject.
    const char *others[] = {
        "a|b",      "a|ab",  "ab|a",      "|a",    "a|",        "10.*|10", "*.com|", "*.com|a.com.au",
        "A*|a1",    "a*c|a", "a*b*c|acb", "*a*|b", "*.1|*.2.1", "*|*a",    "*|**",   "a*|a*b",
        "a*b|a*xb", "?|a",   "a**|a",     "**|",   "*b|a b",    "a\nb|a"};
    auto match = [](const char *pair) {
        std::vector<std::string> words = split(pair, '|');
        return wildmatch(words[0].c_str(), words[1].c_str());
    };
    for (const char *pair : matching)
        EXPECT_EQ(match(pair), 1) << pair;
    for (const char *pair : others)
        EXPECT_EQ(match(pair), 0) << pair;
}

// A plain recursion would take exponential time.
TEST(rule_arguments, wildmatch_of_many_stars) {
    std::string pattern, subject(20000, 'a');
    for (int count = 0; count < 200; count++)
        pattern += "*a";
    EXPECT_EQ(wildmatch((pattern + "*b").c_str(), subject.c_str()), 0);
    EXPECT_EQ(wildmatch((pattern + "*b").c_str(), (subject + "b").c_str()), 1);
    EXPECT_EQ(wildmatch((pattern + "*").c_str(), subject.c_str()), 1);
    EXPECT_EQ(wildmatch((pattern + "*").c_str(), subject.substr(0, 199).c_str()), 0);
    std::string stars(2000, '*');
    EXPECT_EQ(wildmatch(stars.c_str(), "a"), 1);
    EXPECT_EQ(wildmatch(stars.c_str(), ""), 0);
    EXPECT_EQ(wildmatch(stars.c_str(), stars.c_str()), 1);
    EXPECT_EQ(wildmatch(stars.c_str(), stars.c_str() + 1), 1);
    EXPECT_EQ(wildmatch(stars.c_str(), stars.c_str() + 2), 0);
    EXPECT_EQ(wildmatch(stars.c_str() + 1, stars.c_str()), 0);
    std::string starred;
    for (int count = 0; count < 3000; count++)
        starred += "xa*";
    EXPECT_EQ(wildmatch((pattern + "*b").c_str(), starred.c_str()), 0);
    EXPECT_EQ(wildmatch((pattern + "*b").c_str(), (starred + "ab").c_str()), 0);
    EXPECT_EQ(wildmatch("*a*a*a*b", (starred + "xaxaab").c_str()), 1);
}

TEST(rule_arguments, burst_sub) {
    struct {
        const char *marker, *text, *tail, *hosts;
        int counter;
    } rows[] = {
        {"", "b c -x", "-x", "5=b -x\n6=c -x\n", 7},
        {"%-deny%", "b", "", "5=%-deny%b \n", 6},
        {"%-permit%", "b \t", "", "5=%-permit%b \n", 6},
        {"", "a\tb  c \t -x  y -z ", "-x  y -z ", "5=a -x  y -z \n6=b -x  y -z \n7=c -x  y -z \n", 8},
        {"%-deny%", "%-permit%a -", "-", "5=%-deny%%-permit%a -\n", 6},
        {"", "-x b", "", "5=-x \n6=b \n", 7},
    };
    for (const auto &r : rows) {
        tree db("hosts=\n");
        int counter = 5;
        std::string text = r.text;
        char *tail = burst_sub(db.head, &counter, r.marker, text.data());
        EXPECT_STREQ(tail, r.tail);
        free(tail);
        EXPECT_EQ(counter, r.counter);
        EXPECT_EQ(text_of(db.head->child), r.hosts);
        for (Frag *rule = db.head->child; rule; rule = rule->next) {
            EXPECT_EQ(rule->vlen, static_cast<long>(strlen(rule->value)));
            EXPECT_EQ(rule->parent, db.head);
        }
    }
}

TEST(rule_arguments, burst_sub_of_a_hundred_thousand_hosts) {
    tree db("hosts=\n");
    std::string text;
    for (int number = 1; number <= 100000; number++)
        text += "h" + numbertext(number) + " ";
    text += "-x";
    int counter = 1;
    char *tail = burst_sub(db.head, &counter, "%-deny%", text.data());
    EXPECT_STREQ(tail, "-x");
    free(tail);
    EXPECT_EQ(counter, 100001);
    int number = 0;
    for (Frag *rule = db.head->child; rule; rule = rule->next) {
        ASSERT_EQ(rule->name, numbertext(++number));
        ASSERT_EQ(rule->value, "%-deny%h" + numbertext(number) + " -x");
    }
    EXPECT_EQ(number, 100000);
}

TEST(rule_arguments, parse_arg) {
    struct {
        const char *text, *set;
        size_t next;
    } rows[] = {
        {"-auth", "-auth=*\n", 5},
        {"-auth   -x", "-auth=*\n", 8},
        {"-auth\t \t", "-auth=*\n", 8},
        {"word -x", "word=*\n", 5},
        {"-a_b_c=d x", "-a_b_c=*\n", 9},
        {"-exec  /bin/x -a  b ", "exec=/bin/x -a  b \n", 20},
        {"-exec", "exec=\n", 5},
        {"-exec \t", "exec=\n", 7},
        {"-execs x", "-execs=*\n", 7},
        {"-Exec x", "-Exec=*\n", 6},
        {"", "=*\n", 0},
    };
    for (const auto &r : rows) {
        tree db("set=\n");
        std::string text = r.text;
        EXPECT_EQ(parse_arg(db.head, text.data()) - text.data(), static_cast<ptrdiff_t>(r.next)) << r.text;
        EXPECT_EQ(text_of(db.head->child), r.set);
        EXPECT_EQ(db.head->child->parent, db.head);
    }
    tree db("set=\n");
    std::string text = "-a   -b -a";
    for (char *place = text.data(); *place;)
        place = parse_arg(db.head, place);
    EXPECT_EQ(text_of(db.head->child), "-b=*\n-a=*\n");
}

TEST(rule_arguments, needs_of_proxies) {
    struct {
        const char *proxies;
        int auth, x;
    } rows[] = {
        {"alerts ssl-px radm info-px gui mrlyd mrly whois fingerd ldap-px VDOLive NetShow svcgrd-fingerd svcgrd-ftpd "
         "svcgrd-rlogind svcgrd-telnetd",
         0, 0},
        {"login-sh credsvc ahttp-px http-px pop3-px", 1, 0},
        {"tn-px rlogin-px other tn-px-2 ssl netshow", 1, 1},
    };
    for (const auto &r : rows)
        for (const std::string &proxy : split(r.proxies, ' ')) {
            EXPECT_EQ(needsauth(proxy.c_str()), r.auth) << proxy;
            EXPECT_EQ(needsx(proxy.c_str()), r.x) << proxy;
        }
}

TEST(rule_arguments, addparm) {
    struct {
        const char *proxy, *attributes, *set, *message;
    } rows[] = {
        {"x", "hosts_0=a\nproxy=b\nHosts=c\n", "Hosts=c\nold=1\n", ""},
        {"mrlyd", "authenticate=*\nauthserver=s\npassword=p\n", "old=1\n", ""},
        {"http-px", "authenticate=*\nauthserver=s\n", "authserver=s\nauthenticate=*\nold=1\n", ""},
        {"unknown", "authenticate=*\npassword=p\n", "password=p\nauthenticate=*\nold=1\n", ""},
        {"tn-px", "authenticate_3=*\nauthenticate_2=x\n", "authenticate=x\nold=1\n", ""},
        {"http-px", "xgateway=bad\n", "old=1\n", ""},
        {"tn-px", "xgateway= %-deny%*:0\n", "xgateway= %-deny%*:0\nold=1\n", ""},
        {"tn-px", "xgateway= \tbad one\n", "old=1\n", "Ignoring bad xgateway rule set_xgateway=bad one\n"},
        {"tn-px", "xgateway_permit-3=*\nxgateway_deny-20=bad\nxgateway_1=%-permit%*z\n",
         "permit-xgateway=*\nxgateway=%-permit%*z\nold=1\n", "Ignoring bad xgateway rule set_deny-xgateway=bad\n"},
        {"mrlyd", "url_0=u\nurl_permit-7=v\nsid_0=s\n", "sid_0=s\nurl_0=u\nurl_permit-7=v\nold=1\n", ""},
        {"mrlyd", "deny-timeout=1\n", "deny-timeout=1\nold=1\n", ""},
        {"mrlyd", "timeout_10=c\ntimeout_permit-9=b\ntimeout_1=a\n", "timeout=c\npermit-timeout=b\ntimeout=a\nold=1\n",
         ""},
        {"mrlyd", "old=2\n", "old=2\nold=1\n", ""},
        {"mrlyd", "use%5Fname_1=a\n", "use%5Fname=a\nold=1\n", ""},
        {"mrlyd", "deep_1_x=a\ndeep_2=b\n", "deep=b\ndeep=a\nold=1\n", ""},
        {"tn-px", "password_9=last\npassword_1=first\n", "password=first\nold=1\n", ""},
    };
    for (const auto &r : rows) {
        tree db("set_old=1\n"), attributes(r.attributes);
        testing::internal::CaptureStderr();
        while (Frag *attribute = attributes.head) {
            attributes.head = attribute->next;
            attribute->parent = db.head;
            addparm(db.head, attribute, r.proxy);
        }
        EXPECT_EQ(testing::internal::GetCapturedStderr(), r.message);
        EXPECT_EQ(text_of(db.head->child), r.set) << r.attributes;
    }
    tree db("set=\n");
    std::string name(70, 'n');
    Frag *attribute = newsymfrag(name.c_str(), name.size());
    fsetp(&attribute->child, "4", "v", attribute);
    addparm(db.head, attribute, "x");
    EXPECT_EQ(text_of(db.head->child), name.substr(0, 63) + "=v\n");
}

TEST(rule_arguments, bad_xgateway) {
    auto check = [](const std::string &value, const std::string &reported) {
        tree db("def_proxy_tn-px_deny-xgateway=" + value + "\n");
        Frag *rule = ffind(db, "def_proxy_tn-px_xgateway");
        testing::internal::CaptureStderr();
        EXPECT_EQ(bad_xgateway(rule), reported == "ok" ? 0 : 1) << value;
        std::string message = "Ignoring bad xgateway rule def_proxy_tn-px_deny-xgateway=" + reported + "\n";
        EXPECT_EQ(testing::internal::GetCapturedStderr(), reported == "ok" ? "" : message);
        EXPECT_EQ(rule->value, value);
    };
    for (const char *value : {"*", "*.com x", " \t*", "%-permit%*", " %-deny%*"})
        check(value, "ok");
    for (const char *value : {"host", "", "%-DENY%*", "%-permit"})
        check(value, value);
    check("%-permit% *", " *");
    check("%-permit%%-deny%*", "%-deny%*");
    check(" \t%-deny%a b ", "a b ");
}

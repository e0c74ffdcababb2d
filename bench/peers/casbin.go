// Casbin for Go. See compare.py for the rules and for the commands on standard input.
//
// usage: casbin_go MODEL RULES DECISIONS
package main

import (
	"bufio"
	"encoding/json"
	"fmt"
	"os"
	"time"

	"github.com/casbin/casbin"
)

func must[T any](value T, err error) T {
	if err != nil {
		panic(err)
	}
	return value
}

func read[T any](path string) (value T) {
	must(path, json.Unmarshal(must(os.ReadFile(path)), &value))
	return
}

func load(model, path string) *casbin.Enforcer {
	rules := read[struct{ Methods, Tabs, Roles [][]string }](path)
	enforcer := must(casbin.NewEnforcer(model))
	must(enforcer.AddPolicies(rules.Methods))
	must(enforcer.AddGroupingPolicies(append(rules.Tabs, rules.Roles...)))
	return enforcer
}

func main() {
	decisions := read[[][2]string](os.Args[3])
	var enforcer *casbin.Enforcer
	for commands := bufio.NewScanner(os.Stdin); commands.Scan(); {
		if commands.Text() == "load" {
			enforcer = load(os.Args[1], os.Args[2])
			fmt.Println("true")
			continue
		}
		answers := [][2]interface{}{}
		for _, decision := range decisions {
			start := time.Now()
			yes := must(enforcer.Enforce(decision[0], decision[1]))
			answers = append(answers, [2]interface{}{yes, float64(time.Since(start).Nanoseconds()) / 1000})
		}
		fmt.Println(string(must(json.Marshal(answers))))
	}
}
